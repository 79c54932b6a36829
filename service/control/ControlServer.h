// The socket on which the running service is asked: one line a request, any number of lines for an
// answer. What is in them, Requests.h and Replies.h say.
//
// Only processes of the same user are answered; the socket's mode says the same.
#pragma once

#include <functional>
#include <string>
#include <thread>
#include <unordered_map>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/Mutex.h"

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

  void accept() TULO_EXCLUDES(mutex_);
  void welcome(FileDescriptor descriptor) TULO_EXCLUDES(mutex_);
  void serve(std::size_t number, int descriptor) TULO_EXCLUDES(mutex_);
  void joinEnded() TULO_EXCLUDES(mutex_);

  std::string path_;
  Handler handler_;
  FileDescriptor listener_;
  FileDescriptor wake_;
  std::thread acceptor_;
  Mutex mutex_;  // a leaf, never held while a request is handled
  std::unordered_map<std::size_t, Connection> connections_ TULO_GUARDED_BY(mutex_);
  std::size_t nextConnection_ TULO_GUARDED_BY(mutex_) = 0;
};

}  // namespace tulo
