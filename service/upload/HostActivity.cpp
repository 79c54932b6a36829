#include "service/upload/HostActivity.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/SocketAddress.h"

namespace tulo {

namespace {

constexpr std::uint8_t kListens = TCP_LISTEN;
constexpr std::uint8_t kConnected = TCP_ESTABLISHED;
// Neither reads nor writes: the other end was closed.
constexpr std::uint8_t kLeft = 3;

struct SocketFile {
  std::string path;
  std::uint64_t inode = 0;
};

// What the kernel says of one socket.
struct SocketEntry {
  std::uint8_t state = 0;
  std::uint8_t shutdown = 0;
  std::uint32_t queue = 0;  // of one that listens: connections that are not accepted yet
  std::uint32_t inode = 0;  // of the file that it is bound to
  std::string_view name;
};

struct Counts {
  unsigned listening = 0;
  unsigned left = 0;
};

// Inode numbers come cut to 32 bits, so the name has its say as well; a host may have used a
// shorter way to it.
bool isOf(const SocketEntry& entry, const SocketFile& file) {
  if (entry.name == file.path) return true;
  const std::string_view last = std::string_view(file.path).substr(file.path.rfind('/') + 1);
  return entry.inode == static_cast<std::uint32_t>(file.inode) && entry.name.ends_with(last);
}

constexpr std::size_t aligned(std::size_t size) {
  constexpr std::size_t unit = NLMSG_ALIGNTO;
  return (size + unit - 1) / unit * unit;
}

// What the bytes begin with; they are not aligned for it.
template <typename Value>
Value frontOf(std::string_view bytes) {
  Value value{};
  std::memcpy(&value, bytes.data(), std::min(sizeof value, bytes.size()));
  return value;
}

// The front that is so long as it says itself, without its head; nothing when there is no more.
template <typename Head, typename Size>
std::optional<std::string_view> take(std::string_view& bytes, Head& head, Size Head::*length) {
  if (bytes.size() < sizeof head) return std::nullopt;
  head = frontOf<Head>(bytes);
  const std::size_t size = head.*length;
  if (size < sizeof head || size > bytes.size()) return std::nullopt;
  const std::string_view payload = bytes.substr(aligned(sizeof head), size - aligned(sizeof head));
  bytes.remove_prefix(std::min(aligned(size), bytes.size()));
  return payload;
}

SocketEntry entryFrom(std::string_view message) {
  SocketEntry entry;
  entry.state = frontOf<unix_diag_msg>(message).udiag_state;
  std::string_view attributes = message.substr(std::min(sizeof(unix_diag_msg), message.size()));
  rtattr head = {};
  while (const auto value = take(attributes, head, &rtattr::rta_len)) {
    if (head.rta_type == UNIX_DIAG_NAME) entry.name = value->substr(0, value->find('\0'));
    if (head.rta_type == UNIX_DIAG_SHUTDOWN) entry.shutdown = frontOf<std::uint8_t>(*value);
    if (head.rta_type == UNIX_DIAG_RQLEN)
      entry.queue = frontOf<unix_diag_rqlen>(*value).udiag_rqueue;
    if (head.rta_type == UNIX_DIAG_VFS) entry.inode = frontOf<unix_diag_vfs>(*value).udiag_vfs_ino;
  }
  return entry;
}

bool ask(int netlink) {
  struct {
    nlmsghdr head;
    unix_diag_req request;
  } message = {};
  message.head.nlmsg_len = sizeof message;
  message.head.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  message.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  message.request.sdiag_family = AF_UNIX;
  message.request.udiag_states = 1U << kListens | 1U << kConnected;
  message.request.udiag_show = UDIAG_SHOW_NAME | UDIAG_SHOW_VFS | UDIAG_SHOW_RQLEN;
  return ::send(netlink, &message, sizeof message, 0) == static_cast<ssize_t>(sizeof message);
}

void count(const SocketEntry& entry, const SocketFile& file, Counts& counts) {
  if (!isOf(entry, file)) return;
  if (entry.state == kListens) ++counts.listening;
  // Of a connection that was not accepted yet it is not told whether anybody is still there.
  const bool queued = entry.state == kListens && entry.queue > 0;
  const bool left = entry.state == kConnected && entry.shutdown == kLeft;
  if (queued || left) ++counts.left;
}

// Nothing when the kernel does not say.
std::optional<Counts> countsOf(const SocketFile& file) {
  const FileDescriptor netlink(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
  if (!netlink || !ask(netlink.get())) return std::nullopt;
  std::array<char, 65536> buffer;
  Counts counts;
  for (;;) {
    const ssize_t received = ::recv(netlink.get(), buffer.data(), buffer.size(), 0);
    if (received < 0 && errno == EINTR) continue;
    if (received <= 0) return std::nullopt;
    std::string_view messages(buffer.data(), static_cast<std::size_t>(received));
    nlmsghdr head = {};
    while (const auto message = take(messages, head, &nlmsghdr::nlmsg_len)) {
      if (head.nlmsg_type == NLMSG_DONE) return counts;
      if (head.nlmsg_type != SOCK_DIAG_BY_FAMILY) return std::nullopt;
      count(entryFrom(*message), file, counts);
    }
  }
}

// A host in another network namespace is none that the kernel lists here.
bool isRefused(const std::string& path) {
  const auto address = SocketAddress::of(path);
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!address || !socket) return false;
  return address->connect(socket.get()) != 0 && errno == ECONNREFUSED;
}

}  // namespace

HostActivity activityOfHost(const std::string& socket) {
  struct stat status = {};
  if (::stat(socket.c_str(), &status) != 0) return HostActivity::absent;
  if (!S_ISSOCK(status.st_mode)) return HostActivity::unknown;
  const std::optional<Counts> counts = countsOf({socket, status.st_ino});
  if (!counts) return HostActivity::unknown;
  if (counts->left > 0) return HostActivity::busy;
  if (counts->listening > 0) return HostActivity::idle;
  return isRefused(socket) ? HostActivity::absent : HostActivity::unknown;
}

}  // namespace tulo
