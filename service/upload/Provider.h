// Asks the provider and waits for its answer.
//
// Threads: every member may be called on any thread, which waits; stop() ends all waiting within a
// moment. An answer that comes afterwards is dropped, with the file that it brings.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/FileProvider.h"
#include "service/listing/Belief.h"
#include "service/listing/Listing.h"
#include "service/replica/ContentStore.h"
#include "service/upload/Plan.h"

namespace tulo {

// What a provider answered.
struct Answer {
  bool stopped = false;  // nothing, and nobody waits any more
  platform::ItemPointer item;
  std::optional<platform::NSError> error;
  std::optional<platform::URL> url;
  Listing listing;

  // The host does not have what was asked for.
  bool isGone() const;
};

class Provider {
 public:
  Provider(std::shared_ptr<platform::NSFileProviderReplicatedExtension> extension,
           const ContentStore& store, const Belief& belief = Belief())
      : extension_(std::move(extension)), store_(store), belief_(belief) {}

  void stop() { stopping_ = true; }
  bool isStopped() const { return stopping_; }

  // What the host has of one item, and of all in a folder. That there is nothing is answered only
  // if the source says so as well; else that the host cannot be reached.
  Answer lookUp(const std::string& identifier);
  Answer list(const std::string& identifier);
  // What the host shows of a new or changed file, whose index may follow a moment after its reply:
  // the given item unless it is no more than an identifier, else what is looked up until it is
  // more, for a while.
  platform::ItemPointer awaitRow(const Node& sent, const platform::ItemPointer& item);
  // The file that is answered is the caller's to remove.
  Answer fetch(const std::string& identifier);
  // Has the host do what the plan says.
  Answer send(const Plan& plan);

 private:
  class Call;

  Answer listOnce(const std::string& identifier);
  Answer await(const std::function<void(std::shared_ptr<Call>)>& begin) const;

  const std::shared_ptr<platform::NSFileProviderReplicatedExtension> extension_;
  const ContentStore& store_;
  const Belief belief_;
  std::atomic<bool> stopping_ = false;
};

}  // namespace tulo
