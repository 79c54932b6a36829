// The socket on which the running service is asked: JSON, one object a line in both directions.
// docs/replica.md describes the operations.
//
// Only processes of the same user are answered; the socket's mode says the same.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "platform/linux/FileDescriptor.h"

namespace tulo {

// Threads: start() and stop() once each; the handler is called on a thread for each connection.
class ControlServer {
 public:
  // Sends one line; false when nobody reads any more.
  using Emit = std::function<bool(const std::string& line)>;
  using Handler = std::function<void(const std::string& request, const Emit& emit)>;

  // Binds the socket, replacing one that nobody listens on. Throws ServiceError.
  ControlServer(const std::string& path, Handler handler);
  ~ControlServer();
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  void start();
  void stop();

 private:
  struct Connection {
    std::thread thread;
    int descriptor = -1;
    bool ended = false;
  };

  void accept();
  void serve(std::size_t number, int descriptor);
  void joinEnded();

  std::string path_;
  Handler handler_;
  FileDescriptor listener_;
  FileDescriptor wake_;
  std::thread acceptor_;
  // Guards the connections; a leaf, never held while a request is handled.
  std::mutex mutex_;
  std::unordered_map<std::size_t, Connection> connections_;
  std::size_t nextConnection_ = 0;
};

// The other end.
class ControlClient {
 public:
  // Throws ServiceError, in words for the user when no service runs.
  explicit ControlClient(const std::string& path);

  // Sends the request and hands over each line of the answer until the service closes or `line`
  // returns false.
  void ask(const std::string& request, const std::function<bool(const std::string&)>& line);

 private:
  FileDescriptor socket_;
};

}  // namespace tulo
