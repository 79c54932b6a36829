// The host's end of the socket "fp.sock".
//
// One thread accepts connections and collects their requests, so that a peer that says nothing
// costs a descriptor and no more; a bounded number of workers answer them.
//
// Threads: start() and stop() by the owner; the handler is called on the workers, several at a
// time.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <string_view>
#include <thread>

#include "host/account/Container.h"
#include "host/base/HostLog.h"
#include "host/server/Answer.h"
#include "host/server/IncomingRequest.h"
#include "host/server/ListeningSocket.h"
#include "host/server/StopSignal.h"
#include "host/server/Workers.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

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
  using Clock = IncomingRequest::Clock;

  void run();
  std::chrono::milliseconds waitTime(bool isFull) const;
  void acceptOne();
  // True when the connection is done with here.
  bool receive(IncomingRequest& incoming);

  Limits limits_;
  Handler handler_;
  ListeningSocket socket_;
  FileDescriptor wake_;
  StopSignal stop_;
  std::thread thread_;
  // Of the thread alone.
  std::list<IncomingRequest> incoming_;
  Workers workers_;
};

}  // namespace tulo::host
