// The floor of a host exchange: the socket calls alone; and the host that both sides talk to.
#pragma once

#include <string>
#include <thread>

namespace tulo::bench {

// Answers every connection with the same bytes once a line feed has come.
class EchoServer {
 public:
  EchoServer(const std::string& socketPath, std::string reply);
  ~EchoServer();
  EchoServer(const EchoServer&) = delete;
  EchoServer& operator=(const EchoServer&) = delete;

 private:
  void serve() const;

  int listener_;
  const std::string reply_;
  std::thread thread_;
};

// Connect, send, receive until a line feed or the end in pieces of 4096 bytes, close. Aborts when a
// call fails.
std::string bareExchange(const std::string& socketPath, const std::string& request);

}  // namespace tulo::bench
