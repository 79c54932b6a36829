// Plays the kernel's part of a mount: sends what programs ask for as the kernel's packets and
// takes the answers. Between it and the handlers stands the real libfuse, over a pair of sockets.
//
// A request is handled before the call returns; an answer that comes later, from a download or from
// the host, is waited for.
//
// Threads: one at a time. Answers may come from any.
#pragma once

#include <gtest/gtest.h>
#include <linux/fuse.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/FileDescriptor.h"
#include "service/mount/Fuse.h"
#include "service/mount/Handlers.h"

namespace tulo::test {

struct KernelReply {
  int error = 0;  // an errno
  std::string body;

  // The first bytes as one of the kernel's structures; adds a test failure when there are too few.
  template <typename Structure>
  Structure as() const;
};

struct KernelNotice {
  int code = 0;  // FUSE_NOTIFY_*
  std::string body;
};

class Kernel {
 public:
  using Ticket = std::uint64_t;

  // Makes the connection. `offered`: FUSE_* flags of what this kernel can do.
  explicit Kernel(Handlers& handlers, std::uint32_t offered = usualOffer());
  // The same with operations of the test's own.
  explicit Kernel(const fuse_lowlevel_ops& table, void* data = nullptr,
                  std::uint32_t offered = usualOffer());
  ~Kernel();
  Kernel(const Kernel&) = delete;
  Kernel& operator=(const Kernel&) = delete;

  static std::uint32_t usualOffer();
  // What the mount took of the offer.
  const fuse_init_out& agreed() const { return agreed_; }
  fuse_session* session() { return session_.get(); }

  // Any request. `ask` waits for the answer.
  KernelReply ask(std::uint32_t operation, NodeId node, std::string_view arguments = {});
  Ticket send(std::uint32_t operation, NodeId node, std::string_view arguments = {});
  KernelReply await(Ticket ticket);
  // Whether an answer is there already.
  bool isAnswered(Ticket ticket);
  // The program that made the request was sent a signal.
  void interrupt(Ticket ticket);
  // What the kernel was told without having asked, so far.
  std::vector<KernelNotice> notices();
  // The mount is gone.
  void hangUp() { end_ = FileDescriptor(); }
  // Sends a packet and leaves it to somebody else to handle it.
  Ticket post(std::uint32_t operation, NodeId node, std::string_view arguments = {});

  KernelReply lookup(NodeId folder, const std::string& name);
  KernelReply getattr(NodeId node);
  KernelReply open(NodeId node, int flags);
  KernelReply read(std::uint64_t handle, std::uint32_t size, std::uint64_t offset = 0);
  KernelReply write(NodeId node, std::string_view bytes, std::uint64_t offset = 0);
  KernelReply release(NodeId node, std::uint64_t handle);
  KernelReply create(NodeId folder, const std::string& name, int flags, mode_t mode = 0600);
  KernelReply mkdir(NodeId folder, const std::string& name);

  // Opens a file and gives the handle; adds a test failure when that does not go.
  std::uint64_t opened(NodeId node, int flags);

 private:
  struct SessionDeleter {
    void operator()(fuse_session* session) const { fuse_session_destroy(session); }
  };

  void handleOne();
  bool receiveOne(int patience);
  std::string readExactly(std::size_t size);

  FileDescriptor end_;
  std::unique_ptr<fuse_session, SessionDeleter> session_;
  fuse_buf buffer_ = {};
  fuse_init_out agreed_ = {};
  Ticket last_ = 0;
  std::map<Ticket, KernelReply> replies_;
  std::vector<KernelNotice> notices_;
};

// The bytes of a structure, to be sent.
template <typename Structure>
std::string bytesOf(const Structure& structure) {
  return std::string(reinterpret_cast<const char*>(&structure), sizeof structure);
}
// A name, as it stands in a packet.
inline std::string nameBytes(const std::string& name) {
  return name + '\0';
}

template <typename Structure>
Structure KernelReply::as() const {
  Structure structure = {};
  EXPECT_GE(body.size(), sizeof structure) << "errno " << error;
  if (body.size() >= sizeof structure) {
    std::char_traits<char>::copy(reinterpret_cast<char*>(&structure), body.data(),
                                 sizeof structure);
  }
  return structure;
}

}  // namespace tulo::test
