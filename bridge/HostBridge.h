// The five requests that the extension makes of the host application.
//
// Each is one exchange on a connection of its own: a JSON object and a line feed go to the socket
// "fp.sock" in the application group's container, and one comes back. Contents that go to the host
// are copied into the container's "fp-upload" first, and only the copy's path travels; the copy is
// the host's from then on and is never removed here.
//
// Threads: every function may be called on any thread, any number at a time; it blocks for the
// whole exchange. The time-out, in seconds, bounds each single send and receive, not their sum.
// Errors: thrown. HostBridgeError, or what the file manager (FileManagerError) or the JSON
// serializer (JSONSerializationError) throws. Nothing is logged and nothing is retried.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/JSON.h"
#include "platform/URL.h"

namespace tulo {

struct HostBridge {
  HostBridge() = delete;

  // The file in which the host has placed the item's current contents.
  static platform::URL fetch(const std::string& account, const std::string& ulid,
                             double timeout = 300);

  // An image file that the host has rendered.
  static platform::URL thumbnail(const std::string& account, const std::string& ulid,
                                 double timeout = 20);

  // The new item's ULID. No parent means the top level; no contents, an empty item or a folder.
  static std::string create(const std::string& account, const std::optional<std::string>& parent,
                            const std::string& name, const std::optional<platform::URL>& contents,
                            double timeout = 600);

  // Changes what is given. An absent parent means no move; a parent that is present but holds
  // nothing, a move to the top level.
  static void modify(const std::string& account, const std::string& ulid, bool isFolder,
                     const std::optional<platform::URL>& contents,
                     const std::optional<std::string>& name,
                     const std::optional<std::optional<std::string>>& parent, double timeout = 600);

  static void deleteItem(const std::string& account, const std::string& ulid, bool isFolder,
                         double timeout = 120);

  // The steps that the operations are made of; nobody else calls them but tests.

  // Where the socket is. Throws unreachable when there is no container.
  static platform::URL socketURL();

  // Sends one request and reads one reply.
  static platform::JSONObject roundTrip(const platform::JSONObject& request, double timeout);

  // Returns if the reply reports success; throws the failure that it reports otherwise.
  static void succeed(const platform::JSONObject& reply);

  // Copies contents into the staging directory under a fresh name.
  static platform::URL stage(const platform::URL& contents);

  // A time-out as the socket takes it: truncated toward zero, so that less than a second means no
  // limit. Aborts for what is not a finite number of 64 bits.
  static std::int64_t wholeSeconds(double timeout);
};

}  // namespace tulo
