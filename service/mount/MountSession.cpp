#include "service/mount/MountSession.h"

#include <sys/statvfs.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "platform/FileProvider.h"
#include "service/base/Names.h"
#include "service/base/ServiceLog.h"
#include "service/mount/DirectoryBuffer.h"
#include "service/mount/MountGuard.h"
#include "service/mount/RequestLoop.h"
#include "service/replica/Journal.h"

namespace tulo {

namespace {

// Up to this size a read is answered from a buffer: below it, moving pages costs more than it
// saves.
constexpr std::size_t kSmallRead = 32 * 1024;

// Whether reading waits for no disk; told from the first and the last page.
bool isInMemory(int file, std::size_t size, off_t offset) {
  for (const off_t place :
       {offset, offset + static_cast<off_t>(std::max<std::size_t>(size, 1)) - 1}) {
    char byte = 0;
    const iovec vector = {&byte, 1};
    if (::preadv2(file, &vector, 1, place, RWF_NOWAIT) < 0) return false;
  }
  return true;
}

// All that a listing without attributes has of an entry.
fuse_entry_param withTypeOnly(const Entry& entry) {
  fuse_entry_param parameters = {};
  parameters.ino = entry.id.number();
  parameters.attr.st_ino = entry.id.number();
  if (entry.kind == NodeKind::folder) {
    parameters.attr.st_mode = S_IFDIR;
  } else {
    parameters.attr.st_mode = entry.kind == NodeKind::link ? S_IFLNK : S_IFREG;
  }
  return parameters;
}

unsigned permissions(const Entry& entry, unsigned usual, bool writable) {
  const unsigned bits = entry.mode != 0 ? static_cast<unsigned>(entry.mode) & 0777U : usual;
  return writable ? bits : bits & ~0222U;
}

}  // namespace

MountSession::MountSession(const MountParts& parts, uid_t user, gid_t group)
    : parts_(parts), user_(user), group_(group), interrupts_(1) {}

void MountSession::stop() {
  interrupts_.stop();
}

void MountSession::initialize(fuse_conn_info& connection) {
  const auto want = [&](unsigned capability) {
    if (connection.capable & capability) connection.want |= capability;
  };
  want(FUSE_CAP_READDIRPLUS);
  want(FUSE_CAP_READDIRPLUS_AUTO);
  want(FUSE_CAP_PARALLEL_DIROPS);
  want(FUSE_CAP_CACHE_SYMLINKS);
  want(FUSE_CAP_NO_OPENDIR_SUPPORT);
  want(FUSE_CAP_SPLICE_WRITE);
  want(FUSE_CAP_SPLICE_MOVE);
  // Data changes when Notifier says so, not when some attribute differs. Automatic invalidation
  // would take precedence.
  connection.want &= ~static_cast<unsigned>(FUSE_CAP_AUTO_INVAL_DATA);
  want(FUSE_CAP_EXPLICIT_INVAL_DATA);
  // Truncating is part of opening, so that a file that is about to be replaced is not fetched.
  if (parts_.edits) want(FUSE_CAP_ATOMIC_O_TRUNC);
  if (!parts_.edits) passthrough_.negotiate(connection);
  connection.max_background = 256;
  connection.congestion_threshold = 192;
  connection.max_readahead = 1 << 20;
}

struct stat MountSession::attributes(const Entry& row) const {
  Entry entry = row;
  if (parts_.files) parts_.files->overlay(entry);
  struct stat status = {};
  status.st_ino = entry.id.number();
  status.st_uid = user_;
  status.st_gid = group_;
  status.st_nlink = 1;
  status.st_mtim = entry.modified.spec();
  status.st_ctim = status.st_mtim;
  status.st_atim = status.st_mtim;
  status.st_blksize = 4096;
  const bool writable =
      (entry.capabilities & platform::NSFileProviderItemCapabilitiesAllowsWriting) != 0;
  if (entry.kind == NodeKind::folder) {
    status.st_mode = S_IFDIR | permissions(entry, 0700U, writable);
  } else if (entry.kind == NodeKind::link) {
    status.st_mode = S_IFLNK | 0777U;
    status.st_size = entry.size;
  } else {
    status.st_mode = S_IFREG | permissions(entry, 0600U, writable);
    status.st_size = entry.size;
    status.st_blocks = entry.blocks;
  }
  return status;
}

fuse_entry_param MountSession::parameters(const Entry& entry) const {
  fuse_entry_param parameters = {};
  parameters.ino = entry.id.number();
  parameters.generation = 1;
  parameters.attr = attributes(entry);
  parameters.attr_timeout = kForever;
  parameters.entry_timeout = kForever;
  return parameters;
}

bool MountSession::tooLong(fuse_req_t request, const char* name) {
  if (std::strlen(name) <= names::kLongestName) return false;
  fuse_reply_err(request, ENAMETOOLONG);
  return true;
}

void MountSession::replyEntry(fuse_req_t request, const Entry& entry) {
  const fuse_entry_param answer = parameters(entry);
  // Counted first: the kernel may forget the folder before this thread goes on.
  if (entry.kind == NodeKind::folder) parts_.folders.remembered(entry.id);
  if (fuse_reply_entry(request, &answer) != 0 && entry.kind == NodeKind::folder) {
    parts_.folders.forgotten(entry.id, 1);
  }
}

bool MountSession::answerLookup(fuse_req_t request, NodeId folder, const std::string& name,
                                bool refreshed, int error) {
  const NameLookup found = parts_.replica.readBriefly(
      [&](ReplicaReader& reader) { return reader.lookup(folder, name); });
  if (!found.folderExists) {
    fuse_reply_err(request, ESTALE);
    return true;
  }
  const Freshness freshness = parts_.sync.freshness(folder, found.listed);
  // What was seen since the service started and changed since is on its way (the sweep); only a
  // name that is not here has to be looked for first.
  const bool goodEnough =
      freshness == Freshness::current || (freshness == Freshness::older && found.entry.has_value());
  if (!refreshed && !goodEnough) return false;
  if (found.entry) {
    replyEntry(request, *found.entry);
  } else if (error != 0 && found.listed == 0) {
    fuse_reply_err(request, error);
  } else {
    fuse_entry_param nothing = {};
    nothing.entry_timeout = error == 0 ? kForever : 0;
    fuse_reply_entry(request, &nothing);
  }
  return true;
}

void MountSession::lookup(fuse_req_t request, NodeId folder, const char* name) {
  guarded(request, [&] {
    if (tooLong(request, name)) return;
    parts_.folders.used(folder);
    if (answerLookup(request, folder, name, false, 0)) return;
    parts_.sync.refresh(folder, [this, request, folder, text = std::string(name)](int error) {
      guarded(request, [&] { answerLookup(request, folder, text, true, error); });
    });
  });
}

void MountSession::getattr(fuse_req_t request, NodeId node) {
  guarded(request, [&] {
    auto entry = parts_.openFiles.leftBehind(node);
    if (!entry) {
      entry = parts_.replica.readBriefly([&](ReplicaReader& reader) { return reader.entry(node); });
    }
    bool unlinked = false;
    if (!entry && parts_.openFiles.isOpen(node)) {
      entry = parts_.replica.read(
          [&](ReplicaReader& reader) -> std::optional<Entry> { return reader.node(node); });
      unlinked = true;
    }
    if (!entry) {
      fuse_reply_err(request, ESTALE);
      return;
    }
    struct stat status = attributes(*entry);
    if (unlinked) status.st_nlink = 0;
    fuse_reply_attr(request, &status, kForever);
  });
}

void MountSession::replyOpen(fuse_req_t request, fuse_file_info info, OpenAnswer answer) {
  if (answer.error != 0) {
    fuse_reply_err(request, answer.error);
    return;
  }
  int error = 0;
  const bool writes = writesThrough(info, *answer.file, error);
  if (error != 0) {
    fuse_reply_err(request, error);
    return;
  }
  // One number stands for one version, so the pages are good as long as the number is; changes
  // are invalidated.
  info.keep_cache = 1;
  info.noflush = asksWhenClosing(writes) ? 0 : 1;
  passthrough_.opened(request, *answer.file, info);
  info.fh = reinterpret_cast<std::uint64_t>(answer.file.release());
  // The kernel must have heard of a new version before somebody reads it.
  parts_.notifier.afterDelivery([this, request, info] {
    if (fuse_reply_open(request, &info) != 0) drop(nullptr, info);
  });
}

void MountSession::open(fuse_req_t request, NodeId node, const fuse_file_info& info) {
  guarded(request, [&] {
    const bool writes = (info.flags & (O_ACCMODE | O_TRUNC)) != O_RDONLY;
    if (writes && !parts_.edits) {
      fuse_reply_err(request, EROFS);
      return;
    }
    if (writes) {
      const int error = parts_.edits->mayWrite(node);
      if (error != 0) {
        fuse_reply_err(request, error);
        return;
      }
      if ((info.flags & O_TRUNC) != 0) return openEmptied(request, node, info);
    }
    if (std::optional<OpenAnswer> now = parts_.contents.openNow(node)) {
      replyOpen(request, info, std::move(*now));
    } else {
      openWaiting(request, node, info);
    }
  });
}

void MountSession::openWaiting(fuse_req_t request, NodeId node, const fuse_file_info& info) {
  const int process = fuse_req_ctx(request)->pid;
  const Contents::Ticket ticket = parts_.contents.beginOpen(
      node,
      [this, request, info](OpenAnswer answer) { replyOpen(request, info, std::move(answer)); });
  // The request may be gone when this runs, so nothing of it is touched; the ticket knows.
  const auto interrupted = [](fuse_req_t interruptedRequest, void* data) {
    MountSession& session = of(interruptedRequest);
    const auto number = static_cast<Contents::Ticket>(reinterpret_cast<std::uintptr_t>(data));
    session.interrupts_.async([&session, number] { session.parts_.contents.cancel(number); });
  };
  fuse_req_interrupt_func(request, interrupted,
                          reinterpret_cast<void*>(static_cast<std::uintptr_t>(ticket)));
  parts_.contents.proceed(ticket, node, process);
}

void MountSession::read(fuse_req_t request, std::size_t size, off_t offset,
                        const fuse_file_info& info) {
  guarded(request, [&] {
    auto& file = *reinterpret_cast<OpenFile*>(info.fh);
    if (readShared(request, file, size, offset)) return;
    if (file.endsBefore(offset)) {
      fuse_reply_buf(request, nullptr, 0);
      return;
    }
    try {
      const std::shared_ptr<const FileDescriptor> descriptor = file.descriptor();
      if (!isInMemory(descriptor->get(), size, offset)) RequestLoop::passTurn();
      if (size <= kSmallRead) {
        std::array<char, kSmallRead> buffer;
        const ssize_t count = ::pread(descriptor->get(), buffer.data(), size, offset);
        if (count < 0) {
          fuse_reply_err(request, errno);
        } else {
          fuse_reply_buf(request, buffer.data(), static_cast<std::size_t>(count));
        }
        return;
      }
      fuse_bufvec buffers{};  // libfuse's own initialiser is no C++ to clang
      buffers.count = 1;
      buffers.buf[0].size = size;
      buffers.buf[0].flags = static_cast<fuse_buf_flags>(FUSE_BUF_IS_FD | FUSE_BUF_FD_SEEK);
      buffers.buf[0].fd = descriptor->get();
      buffers.buf[0].pos = offset;
      fuse_reply_data(request, &buffers, FUSE_BUF_SPLICE_MOVE);
    } catch (const ContentError& error) {
      parts_.contents.cannotRead(file, error);
      fuse_reply_err(request, EIO);
    }
  });
}

void MountSession::readdir(fuse_req_t request, NodeId folder, std::size_t size, off_t offset,
                           bool plus) {
  guarded(request, [&] {
    parts_.folders.used(folder);
    if (offset == 0) {
      const auto listed =
          parts_.replica.read([&](ReplicaReader& reader) { return reader.listed(folder); });
      if (!listed) {
        fuse_reply_err(request, ESTALE);
        return;
      }
      if (parts_.sync.freshness(folder, *listed) != Freshness::current) {
        const bool known = *listed != 0;
        parts_.sync.refresh(folder, [=, this](int error) {
          if (error != 0 && !known) {
            fuse_reply_err(request, error);
          } else {
            guarded(request, [&] { fillDirectory(request, folder, size, offset, plus); });
          }
        });
        return;
      }
    }
    fillDirectory(request, folder, size, offset, plus);
  });
}

bool MountSession::addDots(fuse_req_t request, NodeId folder, off_t offset, bool plus,
                           DirectoryBuffer& buffer) {
  Entry entry;
  entry.kind = NodeKind::folder;
  entry.capabilities = platform::NSFileProviderItemCapabilitiesAllowsWriting;
  entry.id = folder;
  if (offset < 1 && !buffer.add(request, ".", attributes(entry), nullptr, 1, plus)) return false;
  if (offset < 2 && !buffer.add(request, "..", attributes(entry), nullptr, 2, plus)) return false;
  return true;
}

void MountSession::fillDirectory(fuse_req_t request, NodeId folder, std::size_t size, off_t offset,
                                 bool plus) {
  if (offset == 0 && parts_.listed) parts_.listed(folder);
  DirectoryBuffer buffer(size);
  std::vector<NodeId> remembered;
  if (addDots(request, folder, offset, plus, buffer)) {
    const NodeId after =
        NodeId(offset <= 2 ? kFirstNode.number() - 1 : static_cast<std::uint64_t>(offset));
    std::string text;
    parts_.replica.read([&](ReplicaReader& reader) {
      reader.children(folder, after, [&](const Entry& entry, std::string_view name) {
        const fuse_entry_param answer = plus ? parameters(entry) : withTypeOnly(entry);
        const auto cursor = static_cast<off_t>(entry.id.number());
        text.assign(name);
        if (!buffer.add(request, text.c_str(), answer.attr, &answer, cursor, plus)) return false;
        if (plus && entry.kind == NodeKind::folder) remembered.push_back(entry.id);
        return true;
      });
    });
  }
  for (NodeId id : remembered)
    parts_.folders.remembered(id);
  if (fuse_reply_buf(request, buffer.data(), buffer.used()) != 0) {
    for (NodeId id : remembered)
      parts_.folders.forgotten(id, 1);
  }
}

void MountSession::statfs(fuse_req_t request) {
  struct statvfs status = {};
  if (::statvfs(parts_.replica.directory().c_str(), &status) != 0) {
    fuse_reply_err(request, errno);
    return;
  }
  status.f_namemax = 255;
  fuse_reply_statfs(request, &status);
}

void MountSession::getxattr(fuse_req_t request, NodeId id, const char* name, std::size_t size) {
  guarded(request, [&] {
    if (std::strncmp(name, "user.", 5) != 0) {
      // "Not supported here" is what `ls -l` remembers for the whole mount; "not set" it would
      // ask again for every file.
      fuse_reply_err(request, EOPNOTSUPP);
      return;
    }
    const auto value = parts_.replica.read([&](ReplicaReader& reader) {
      const auto subject = attributes::subject(reader, id);
      return subject ? attributes::value(*subject, name, parts_.domain) : std::nullopt;
    });
    if (!value) {
      fuse_reply_err(request, ENODATA);
    } else if (size == 0) {
      fuse_reply_xattr(request, value->size());
    } else if (size < value->size()) {
      fuse_reply_err(request, ERANGE);
    } else {
      fuse_reply_buf(request, value->data(), value->size());
    }
  });
}

void MountSession::listxattr(fuse_req_t request, NodeId id, std::size_t size) {
  guarded(request, [&] {
    const auto subject =
        parts_.replica.read([&](ReplicaReader& reader) { return attributes::subject(reader, id); });
    std::string list;
    if (subject) {
      for (const std::string& name : attributes::names(*subject))
        list += name + '\0';
    }
    if (size == 0) {
      fuse_reply_xattr(request, list.size());
    } else if (size < list.size()) {
      fuse_reply_err(request, ERANGE);
    } else {
      fuse_reply_buf(request, list.data(), list.size());
    }
  });
}

}  // namespace tulo
