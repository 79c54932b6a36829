// A host application steered by the test: a real Unix-domain socket whose replies are scripts.
//
// Each connection, in the order in which they are accepted, takes the next script; the last one
// serves every further connection. A script is a list of steps on the accepted connection; after
// the last one the connection stays open until the peer closes it.
//
// Threads: one for accepting and one for each connection; the test's calls may come from any.
// Lifetime: the destructor cuts all connections, ends all scripts and removes the socket.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/Gate.h"

namespace tulo::test {

class FakeHost {
 public:
  // The far end of one connection, as a step sees it. A step that cannot go on (the peer is gone,
  // the host ends) is cut off by an exception of the host's own.
  class Peer {
   public:
    virtual ~Peer() = default;
    // Reads on until the first line feed or the end, and gives all bytes so far.
    virtual std::string readRequest() = 0;
    // One write; waits for room.
    virtual void send(std::string_view bytes) = 0;
    // Until the peer has taken everything out of the socket.
    virtual void waitUntilTaken() = 0;
    virtual void wait(Gate& gate) = 0;
    virtual void hangUp() = 0;
  };
  using Step = std::function<void(Peer&)>;
  using Script = std::vector<Step>;

  // What happened on one connection.
  struct Exchange {
    std::string received;     // every byte that came, also after the request
    bool halfClosed = false;  // the peer had ended its writing when the request was complete
    bool closed = false;      // the connection is over at this end, and its descriptor closed
  };

  explicit FakeHost(const std::string& socketPath);
  ~FakeHost();
  FakeHost(const FakeHost&) = delete;
  FakeHost& operator=(const FakeHost&) = delete;

  // Appends the script for the next connection.
  FakeHost& then(Script script);

  // All connections so far, in the order in which they were accepted.
  std::vector<Exchange> exchanges() const;
  std::size_t connections() const { return exchanges().size(); }
  // The requests without their line feed.
  std::vector<std::string> requests() const;

  // Whether so many complete requests have come within the bound.
  bool waitForRequests(std::size_t count) const;
  // Whether there were so many connections and all of them were over within the bound.
  bool waitUntilClosed(std::size_t count) const;

  class Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

// Scripts. All but the last two read the request first.

// The text and a line feed.
FakeHost::Script replies(std::string json);
// The bytes as they are; the connection stays open.
FakeHost::Script repliesRaw(std::string bytes);
// The bytes, then the end of the connection.
FakeHost::Script repliesAndHangsUp(std::string bytes);
// The bytes in writes of the given sizes and a last one of the rest, each once the peer has taken
// the one before.
FakeHost::Script repliesInPieces(std::string bytes, std::vector<std::size_t> sizes);
// As `replies`, once the gate is open. The gate must outlive the host.
FakeHost::Script repliesAfter(Gate& gate, std::string json);
// What the function makes of the request, and a line feed.
FakeHost::Script repliesWith(std::function<std::string(const std::string& request)> function);
FakeHost::Script hangsUp();
FakeHost::Script staysSilent();
// Accepts, and neither reads nor writes.
FakeHost::Script readsNothing();
FakeHost::Script hangsUpWithoutReading();

// A socket that listens and on which nobody ever accepts; with room for so many waiting
// connections.
class DeafHost {
 public:
  explicit DeafHost(const std::string& socketPath, int backlog = 8);
  ~DeafHost();
  DeafHost(const DeafHost&) = delete;
  DeafHost& operator=(const DeafHost&) = delete;

 private:
  int descriptor_;
  std::string path_;
};

// The node of a socket whose listener is gone.
void leaveStaleSocket(const std::string& socketPath);

}  // namespace tulo::test
