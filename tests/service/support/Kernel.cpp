#include "tests/service/support/Kernel.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <stdexcept>

#include "service/mount/Operations.h"
#include "tests/support/Eventually.h"

namespace tulo::test {

namespace {

constexpr int kRoomForAnswers = 4 << 20;

// By a socket that takes what is spliced in pieces, unlike the device, answers go as one write.
const fuse_custom_io& plainWrites() {
  static const fuse_custom_io table = [] {
    fuse_custom_io io = {};
    io.writev = [](int descriptor, iovec* parts, int count, void*) {
      return ::writev(descriptor, parts, count);
    };
    io.read = [](int descriptor, void* buffer, size_t size, void*) {
      return ::read(descriptor, buffer, size);
    };
    return io;
  }();
  return table;
}

fuse_session* newSession(const fuse_lowlevel_ops& table, void* data) {
  std::string program = "test";
  std::array<char*, 1> words = {program.data()};
  fuse_args arguments = FUSE_ARGS_INIT(1, words.data());
  fuse_session* session = fuse_session_new(&arguments, &table, sizeof table, data);
  fuse_opt_free_args(&arguments);
  if (!session) throw std::runtime_error("no FUSE session");
  return session;
}

int waitFor(int descriptor, int milliseconds) {
  pollfd wanted = {descriptor, POLLIN, 0};
  return ::poll(&wanted, 1, milliseconds);
}

}  // namespace

std::uint32_t Kernel::usualOffer() {
  return FUSE_ASYNC_READ | FUSE_ATOMIC_O_TRUNC | FUSE_BIG_WRITES | FUSE_AUTO_INVAL_DATA |
         FUSE_DO_READDIRPLUS | FUSE_READDIRPLUS_AUTO | FUSE_PARALLEL_DIROPS | FUSE_MAX_PAGES |
         FUSE_CACHE_SYMLINKS | FUSE_NO_OPENDIR_SUPPORT | FUSE_EXPLICIT_INVAL_DATA;
}

Kernel::Kernel(Handlers& handlers, std::uint32_t offered)
    : Kernel(operations(), &handlers, offered) {}

Kernel::Kernel(const fuse_lowlevel_ops& table, void* data, std::uint32_t offered)
    : session_(newSession(table, data)) {
  std::array<int, 2> ends = {-1, -1};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw std::runtime_error("no sockets");
  }
  end_ = FileDescriptor(ends[0]);
  ::setsockopt(ends[1], SOL_SOCKET, SO_SNDBUF, &kRoomForAnswers, sizeof kRoomForAnswers);
  if (fuse_session_custom_io(session_.get(), &plainWrites(), ends[1]) != 0) {
    throw std::runtime_error("libfuse does not take the socket");
  }
  fuse_init_in init = {};
  init.major = FUSE_KERNEL_VERSION;
  init.minor = FUSE_KERNEL_MINOR_VERSION;
  init.max_readahead = 128 << 10;
  init.flags = offered;
  agreed_ = ask(FUSE_INIT, kNoNode, bytesOf(init)).as<fuse_init_out>();
}

Kernel::~Kernel() {
  std::free(buffer_.mem);
}

Kernel::Ticket Kernel::post(std::uint32_t operation, NodeId node, std::string_view arguments) {
  fuse_in_header header = {};
  header.len = static_cast<std::uint32_t>(sizeof header + arguments.size());
  header.opcode = operation;
  header.unique = ++last_;
  header.nodeid = node.number();
  header.uid = ::getuid();
  header.gid = ::getgid();
  header.pid = static_cast<std::uint32_t>(::getpid());
  // In one piece, as the kernel hands it over.
  const std::string packet = bytesOf(header) + std::string(arguments);
  EXPECT_EQ(::write(end_.get(), packet.data(), packet.size()), static_cast<ssize_t>(packet.size()));
  return header.unique;
}

Kernel::Ticket Kernel::send(std::uint32_t operation, NodeId node, std::string_view arguments) {
  const Ticket ticket = post(operation, node, arguments);
  handleOne();
  return ticket;
}

void Kernel::handleOne() {
  ASSERT_GT(fuse_session_receive_buf(session_.get(), &buffer_), 0);
  fuse_session_process_buf(session_.get(), &buffer_);
}

std::string Kernel::readExactly(std::size_t size) {
  std::string bytes(size, '\0');
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count = ::read(end_.get(), bytes.data() + done, size - done);
    if (count <= 0) throw std::runtime_error("the connection ended");
    done += static_cast<std::size_t>(count);
  }
  return bytes;
}

bool Kernel::receiveOne(int patienceMilliseconds) {
  if (waitFor(end_.get(), patienceMilliseconds) <= 0) return false;
  const KernelReply start{0, readExactly(sizeof(fuse_out_header))};
  const auto header = start.as<fuse_out_header>();
  std::string body = readExactly(header.len - sizeof header);
  if (header.unique == 0) {
    notices_.push_back({header.error, std::move(body)});
  } else {
    EXPECT_FALSE(replies_.contains(header.unique)) << "two answers to one request";
    replies_[header.unique] = {-header.error, std::move(body)};
  }
  return true;
}

KernelReply Kernel::await(Ticket ticket) {
  while (!replies_.contains(ticket)) {
    if (!receiveOne(static_cast<int>(std::chrono::milliseconds(patience).count()))) {
      ADD_FAILURE() << "no answer to request " << ticket;
      return {-1, {}};
    }
  }
  KernelReply reply = std::move(replies_[ticket]);
  // Kept as answered, so that a second answer is noticed.
  replies_[ticket] = {};
  return reply;
}

bool Kernel::isAnswered(Ticket ticket) {
  while (receiveOne(0)) {
  }
  return replies_.contains(ticket);
}

KernelReply Kernel::ask(std::uint32_t operation, NodeId node, std::string_view arguments) {
  return await(send(operation, node, arguments));
}

void Kernel::interrupt(Ticket ticket) {
  send(FUSE_INTERRUPT, kNoNode, bytesOf(fuse_interrupt_in{ticket}));
}

std::vector<KernelNotice> Kernel::notices() {
  while (receiveOne(0)) {
  }
  return std::exchange(notices_, {});
}

KernelReply Kernel::lookup(NodeId folder, const std::string& name) {
  return ask(FUSE_LOOKUP, folder, nameBytes(name));
}

KernelReply Kernel::getattr(NodeId node) {
  return ask(FUSE_GETATTR, node, bytesOf(fuse_getattr_in{}));
}

KernelReply Kernel::open(NodeId node, int flags) {
  return ask(FUSE_OPEN, node, bytesOf(fuse_open_in{static_cast<std::uint32_t>(flags), 0}));
}

std::uint64_t Kernel::opened(NodeId node, int flags) {
  const KernelReply reply = open(node, flags);
  EXPECT_EQ(reply.error, 0);
  return reply.error == 0 ? reply.as<fuse_open_out>().fh : 0;
}

KernelReply Kernel::read(std::uint64_t handle, std::uint32_t size, std::uint64_t offset) {
  fuse_read_in arguments = {};
  arguments.fh = handle;
  arguments.offset = offset;
  arguments.size = size;
  return ask(FUSE_READ, kNoNode, bytesOf(arguments));
}

KernelReply Kernel::write(NodeId node, std::string_view bytes, std::uint64_t offset) {
  fuse_write_in arguments = {};
  arguments.offset = offset;
  arguments.size = static_cast<std::uint32_t>(bytes.size());
  return ask(FUSE_WRITE, node, bytesOf(arguments) + std::string(bytes));
}

KernelReply Kernel::release(NodeId node, std::uint64_t handle) {
  fuse_release_in arguments = {};
  arguments.fh = handle;
  return ask(FUSE_RELEASE, node, bytesOf(arguments));
}

KernelReply Kernel::create(NodeId folder, const std::string& name, int flags, mode_t mode) {
  fuse_create_in arguments = {};
  arguments.flags = static_cast<std::uint32_t>(flags);
  arguments.mode = S_IFREG | mode;
  return ask(FUSE_CREATE, folder, bytesOf(arguments) + nameBytes(name));
}

KernelReply Kernel::mkdir(NodeId folder, const std::string& name) {
  return ask(FUSE_MKDIR, folder, bytesOf(fuse_mkdir_in{0755, 0}) + nameBytes(name));
}

}  // namespace tulo::test
