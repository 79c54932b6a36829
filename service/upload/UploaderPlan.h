// One change on its way to the host. Private to Uploader.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "service/upload/Uploader.h"

namespace tulo {

// What a provider answers, waited for.
struct Uploader::Answer {
  bool stopped = false;
  platform::ItemPointer item;
  std::optional<platform::NSError> error;
  std::optional<platform::URL> url;
  Listing listing;

  bool isGone() const {
    return error && error->domain == platform::NSFileProviderErrorDomain &&
           error->code == static_cast<std::int64_t>(platform::NSFileProviderErrorCode::noSuchItem);
  }
};

// Threads: `answered` may come on any thread, also after nobody waits any more.
struct Uploader::Call {
  std::mutex mutex;
  std::condition_variable changed;
  bool done = false;
  bool abandoned = false;
  Answer answer;

  void answered(platform::ItemPointer item, std::optional<platform::NSError> error,
                std::optional<platform::URL> url = std::nullopt);
  void listed(Listing listing);
};

struct Uploader::Plan {
  enum class Kind { create, modify, remove };
  Kind kind = Kind::modify;
  Node node;
  Change change;
  std::string parentIdentifier;
  platform::NSFileProviderItemFields fields = 0;

  bool sendsContents() const { return (fields & platform::NSFileProviderItemContents) != 0; }
};

// At the host: a folder's identifier and a name in it.
struct Place {
  std::string parent;
  std::string filename;
};

// The item that is sent: the node as it shall be.
platform::ItemPointer templateFor(const Node& node, const std::string& parentIdentifier);

// Whether the reply carries no more than an identifier, because the host's index did not have the
// row yet.
bool isPlaceholder(const Node& sent, const platform::NSFileProviderItem& item);

// "name (conflicted copy of MACHINE, DATE).ext"; `attempt` counts up when that is taken.
std::string conflictedName(const std::string& name, const std::string& machine, WallSeconds time,
                           unsigned attempt);

}  // namespace tulo
