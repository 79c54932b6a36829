// The host's end of the socket "fp.sock".
//
// One thread accepts connections and collects their requests, so that a peer that says nothing
// costs a descriptor and no more; a bounded number of workers answer them.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "host/account/Container.h"
#include "host/base/HostLog.h"
#include "host/server/StopSignal.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

// What becomes of a request.
struct Answer {
  enum class Manner { reply, hangUp, silence };
  Manner manner = Manner::reply;
  // The reply with its line feed.
  std::string line;
};

// Threads: start() and stop() by the owner; the handler is called on the workers, several at a
// time.
class Server {
 public:
  struct Limits {
    std::size_t connections = 512;
    std::size_t workers = 64;
    // For the whole request to come in, and for each piece of the reply to be taken.
    std::chrono::milliseconds patience{30'000};
  };

  using Handler = std::function<Answer(std::string_view request)>;

  // Both references must outlive the server. The handler must not throw.
  Server(const Container& container, const HostLog& log, Limits limits, Handler handler);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Makes the socket, in place of one that a dead host has left. Throws StartError.
  void start();
  // Removes the socket, lets running requests come to their end, and closes every connection.
  void stop();

 private:
  using Clock = std::chrono::steady_clock;

  // A connection whose request is still coming in.
  struct Incoming {
    FileDescriptor fd;
    Clock::time_point deadline;
    std::string request;
    std::size_t discarded = 0;
  };

  struct Job {
    FileDescriptor fd;
    std::string request;
  };

  void removeStaleSocket();
  void run();
  int waitTime() const;
  void acceptAll();
  bool isWelcome(int fd) const;
  // True when the connection is done with here.
  bool receive(Incoming& connection);
  bool hasWholeRequest(Incoming& connection, bool atEnd);
  void enqueue(Incoming& connection);
  void work();
  void serve(Job job);
  void send(int fd, std::string_view line);
  void waitForHangUp(int fd);

  const Container& container_;
  const HostLog& log_;
  Limits limits_;
  Handler handler_;
  FileDescriptor listener_;
  FileDescriptor wake_;
  StopSignal stop_;
  std::thread thread_;
  std::list<Incoming> incoming_;

  std::mutex mutex_;
  std::condition_variable jobsChanged_;
  std::deque<Job> jobs_;
  std::vector<std::thread> workers_;
  std::size_t idleWorkers_ = 0;
  std::size_t activeConnections_ = 0;
  bool stopping_ = false;
};

}  // namespace tulo::host
