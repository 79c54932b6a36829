// The requests of the kernel that change something.
#include <sys/stat.h>

#include <cerrno>
#include <ctime>
#include <vector>

#include "service/mount/MountGuard.h"
#include "service/mount/MountSession.h"
#include "service/mount/RequestLoop.h"

namespace tulo {

NodeId MountSession::nodeNamed(NodeId folder, const std::string& name) {
  if (!parts_.awaited) return kNoNode;
  const NameLookup found =
      parts_.replica.read([&](ReplicaReader& reader) { return reader.lookup(folder, name); });
  return found.entry ? found.entry->id : kNoNode;
}

// Whether the host shall be waited for when the file is closed. Not for an empty one: a shell opens
// it, closes one of two descriptors, and only then are its contents written.
bool MountSession::isUnsent(NodeId file) {
  return parts_.replica.read([&](ReplicaReader& reader) {
    const std::optional<Entry> entry = reader.entry(file);
    const std::optional<Change> change = journal::find(reader, file);
    return entry && entry->size > 0 && change && change->contents && !change->attention;
  });
}

void MountSession::afterVerdict(fuse_req_t request, const std::vector<NodeId>& nodes,
                                Invalidations names, std::function<void()> succeeded) {
  if (!parts_.awaited) return succeeded();
  const Verdicts::Ticket ticket = parts_.awaited->verdicts().begin(
      [this, request, changed = std::move(names), reply = std::move(succeeded)](int error) {
        if (error == 0) return reply();
        parts_.notifier.queue(changed);
        fuse_reply_err(request, error);
      });
  // The request may be gone when this runs, so nothing of it is touched; the ticket knows.
  const auto interrupted = [](fuse_req_t interruptedRequest, void* data) {
    MountSession& session = of(interruptedRequest);
    const auto number = static_cast<Verdicts::Ticket>(reinterpret_cast<std::uintptr_t>(data));
    session.interrupts_.async(
        [&session, number] { session.parts_.awaited->verdicts().cancel(number, EINTR); });
  };
  fuse_req_interrupt_func(request, interrupted,
                          reinterpret_cast<void*>(static_cast<std::uintptr_t>(ticket)));
  parts_.awaited->awaitVerdict(ticket, nodes, parts_.patience);
}

bool MountSession::writesThrough(const fuse_file_info& info, OpenFile& file, int& error) {
  if ((info.flags & O_ACCMODE) == O_RDONLY || !parts_.files) return false;
  error = parts_.files->open(file.node()).error;
  if (error != 0) return false;
  file.setWrites();
  return true;
}

// Nothing of the former contents is wanted, so nothing is fetched.
void MountSession::openEmptied(fuse_req_t request, NodeId node, const fuse_file_info& info) {
  OpenAnswer answer;
  {
    const SharedLock gate(parts_.openFiles.gate());
    answer.file = parts_.contents.openAsIs(node);
  }
  if (!answer.file) {
    answer.error = ESTALE;
  } else {
    const OpenedFile opened = parts_.files->open(node);
    answer.error = opened.file ? opened.file->truncate(0) : opened.error;
  }
  replyOpen(request, info, std::move(answer));
}

bool MountSession::readShared(fuse_req_t request, OpenFile& file, std::size_t size, off_t offset) {
  if (!parts_.files) return false;
  const std::shared_ptr<WritableFile> shared = parts_.files->find(file.node());
  if (!shared) return false;
  std::vector<char> buffer(size);
  const ssize_t count = shared->read(buffer.data(), size, offset);
  // Nobody has it open for writing; the object is there for somebody who settles the file.
  if (count == -ENODATA) return false;
  if (count < 0) {
    fuse_reply_err(request, static_cast<int>(-count));
  } else {
    fuse_reply_buf(request, buffer.data(), static_cast<std::size_t>(count));
  }
  return true;
}

void MountSession::drop(fuse_req_t request, const fuse_file_info& info) {
  std::unique_ptr<OpenFile> file(reinterpret_cast<OpenFile*>(info.fh));
  passthrough_.closed(request, file->node());
  if (!parts_.files) return;
  const NodeId node = file->node();
  if (file->writes()) parts_.files->settleLater(node);
  file.reset();
  parts_.files->released(node);
}

void MountSession::release(fuse_req_t request, const fuse_file_info& info) {
  guarded(request, [&] {
    drop(request, info);
    fuse_reply_err(request, 0);
  });
}

std::shared_ptr<WritableFile> MountSession::shared(fuse_req_t request, NodeId node) {
  const OpenedFile opened = parts_.files ? parts_.files->open(node) : OpenedFile{nullptr, EBADF};
  if (!opened.file) fuse_reply_err(request, opened.error);
  return opened.file;
}

void MountSession::create(fuse_req_t request, NodeId folder, const char* name, mode_t mode,
                          const fuse_file_info& requested) {
  guarded(request, [&] {
    if (tooLong(request, name)) return;
    const EditResult made = parts_.edits->makeOpenFile(folder, name, static_cast<int>(mode));
    if (made.error != 0) {
      // Somebody was faster: the kernel looks again and opens that one.
      const bool again = made.error == EEXIST && (requested.flags & O_EXCL) == 0;
      fuse_reply_err(request, again ? ESTALE : made.error);
      return;
    }
    std::unique_ptr<OpenFile> file = parts_.contents.openNew(made.entry);
    int error = 0;
    writesThrough(requested, *file, error);
    fuse_file_info info = requested;
    info.keep_cache = 1;
    info.noflush = asksWhenClosing(file->writes()) ? 0 : 1;
    info.fh = reinterpret_cast<std::uint64_t>(file.release());
    if (error != 0) {
      fuse_reply_err(request, error);
      drop(nullptr, info);
      return;
    }
    const fuse_entry_param answer = parameters(made.entry);
    if (fuse_reply_create(request, &answer, &info) != 0) drop(nullptr, info);
  });
}

void MountSession::mkdir(fuse_req_t request, NodeId folder, const char* name, mode_t mode) {
  guarded(request, [&] {
    if (tooLong(request, name)) return;
    const EditResult made = parts_.edits->makeFolder(folder, name, static_cast<int>(mode));
    if (made.error != 0) {
      fuse_reply_err(request, made.error);
      return;
    }
    afterVerdict(request, {made.entry.id}, {entryChanged(folder, name)},
                 [this, request, entry = made.entry] { replyEntry(request, entry); });
  });
}

void MountSession::mknod(fuse_req_t request, NodeId folder, const char* name, mode_t mode) {
  guarded(request, [&] {
    if (tooLong(request, name)) return;
    if (!S_ISREG(mode) && (mode & S_IFMT) != 0) {
      fuse_reply_err(request, EPERM);
      return;
    }
    const EditResult made = parts_.edits->makeFile(folder, name, static_cast<int>(mode));
    if (made.error != 0) {
      fuse_reply_err(request, made.error);
    } else {
      replyEntry(request, made.entry);
    }
  });
}

void MountSession::symlink(fuse_req_t request, const char* target, NodeId folder,
                           const char* name) {
  guarded(request, [&] {
    if (tooLong(request, name)) return;
    const EditResult made = parts_.edits->makeLink(folder, name, target);
    if (made.error != 0) {
      fuse_reply_err(request, made.error);
    } else {
      replyEntry(request, made.entry);
    }
  });
}

void MountSession::readlink(fuse_req_t request, NodeId node) {
  guarded(request, [&] {
    const auto target = parts_.edits ? parts_.edits->readLink(node) : std::nullopt;
    if (target) {
      fuse_reply_readlink(request, target->c_str());
    } else {
      fuse_reply_err(request, EINVAL);
    }
  });
}

void MountSession::unlink(fuse_req_t request, NodeId folder, const char* name) {
  guarded(request, [&] {
    const NodeId node = nodeNamed(folder, name);
    const int error = parts_.edits->removeFile(folder, name);
    if (error != 0) {
      fuse_reply_err(request, error);
      return;
    }
    afterVerdict(request, {node}, {entryChanged(folder, name)},
                 [request] { fuse_reply_err(request, 0); });
  });
}

void MountSession::whenListed(fuse_req_t request, NodeId folder, const std::string& name,
                              std::function<void()> then) {
  const NameLookup found = parts_.replica.readBriefly(
      [&](ReplicaReader& reader) { return reader.lookup(folder, name); });
  if (!found.entry || found.entry->kind != NodeKind::folder) return then();
  const NodeId child = found.entry->id;
  const NameLookup inside =
      parts_.replica.read([&](ReplicaReader& reader) { return reader.lookup(child, ""); });
  if (parts_.sync.freshness(child, inside.listed) == Freshness::current) return then();
  parts_.sync.refresh(child, [request, then = std::move(then)](int error) {
    if (error != 0) {
      fuse_reply_err(request, error);
    } else {
      guarded(request, then);
    }
  });
}

void MountSession::rmdir(fuse_req_t request, NodeId folder, const char* name) {
  guarded(request, [&] {
    whenListed(request, folder, name, [this, request, folder, text = std::string(name)] {
      const NodeId node = nodeNamed(folder, text);
      const int error = parts_.edits->removeFolder(folder, text);
      if (error != 0) {
        fuse_reply_err(request, error);
        return;
      }
      afterVerdict(request, {node}, {entryChanged(folder, text)},
                   [request] { fuse_reply_err(request, 0); });
    });
  });
}

void MountSession::rename(fuse_req_t request, NodeId folder, const char* name, NodeId newFolder,
                          const char* newName, unsigned flags) {
  guarded(request, [&] {
    if (tooLong(request, newName)) return;
    whenListed(request, newFolder, newName,
               [this, request, folder, newFolder, flags, from = std::string(name),
                to = std::string(newName)] {
                 const int error = parts_.edits->rename(folder, from, newFolder, to, flags);
                 if (error != 0) {
                   fuse_reply_err(request, error);
                   return;
                 }
                 // The other one is there after an exchange.
                 afterVerdict(request, {nodeNamed(newFolder, to), nodeNamed(folder, from)},
                              {entryChanged(folder, from), entryChanged(newFolder, to)},
                              [request] { fuse_reply_err(request, 0); });
               });
  });
}

int MountSession::truncate(NodeId node, off_t size) {
  // Open meanwhile, so that nobody evicts the contents, and whoever closes the file last leaves it
  // to this one to bring the row up to date.
  std::unique_ptr<OpenFile> open;
  {
    const SharedLock gate(parts_.openFiles.gate());
    open = parts_.contents.openAsIs(node);
  }
  if (!open) return ESTALE;
  const OpenedFile opened = parts_.files->open(node);
  int error = opened.error;
  if (opened.file) {
    error = opened.file->truncate(size);
    const int settled = parts_.files->settle(node);
    if (error == 0) error = settled;
  }
  open.reset();
  parts_.files->released(node);
  return error;
}

void MountSession::applyAttributes(fuse_req_t request, NodeId node, const struct stat& wanted,
                                   int fields) {
  int error = 0;
  if ((fields & FUSE_SET_ATTR_UID) != 0 && wanted.st_uid != user_) error = EPERM;
  if ((fields & FUSE_SET_ATTR_GID) != 0 && wanted.st_gid != group_) error = EPERM;
  if (error == 0 && (fields & FUSE_SET_ATTR_SIZE) != 0) error = truncate(node, wanted.st_size);
  if (error == 0 && (fields & FUSE_SET_ATTR_MODE) != 0) {
    error = parts_.edits->setMode(node, static_cast<int>(wanted.st_mode));
  }
  if (error == 0 && (fields & FUSE_SET_ATTR_MTIME) != 0) {
    timespec modified = wanted.st_mtim;
    if ((fields & FUSE_SET_ATTR_MTIME_NOW) != 0) ::clock_gettime(CLOCK_REALTIME, &modified);
    error = parts_.files->setModified(node, modified);
  }
  if (error != 0) {
    fuse_reply_err(request, error);
  } else {
    getattr(request, node);
  }
}

void MountSession::resize(fuse_req_t request, NodeId node, const struct stat& wanted, int fields) {
  const int error = parts_.edits->mayWrite(node);
  if (error != 0) {
    fuse_reply_err(request, error);
    return;
  }
  if (wanted.st_size == 0 || parts_.openFiles.isOpenForWriting(node)) {
    applyAttributes(request, node, wanted, fields);
    return;
  }
  // What stays of the contents has to be here first.
  parts_.contents.fetch(node, Contents::Priority::opened,
                        [this, request, node, wanted, fields](int failed) {
                          if (failed != 0) {
                            fuse_reply_err(request, failed);
                            return;
                          }
                          guarded(request, [&] { applyAttributes(request, node, wanted, fields); });
                        });
}

void MountSession::setattr(fuse_req_t request, NodeId node, const struct stat& wanted, int fields) {
  guarded(request, [&] {
    if ((fields & FUSE_SET_ATTR_SIZE) != 0) {
      resize(request, node, wanted, fields);
    } else {
      applyAttributes(request, node, wanted, fields);
    }
  });
}

void MountSession::write(fuse_req_t request, NodeId node, const char* data, std::size_t size,
                         off_t offset) {
  guarded(request, [&] {
    const std::shared_ptr<WritableFile> file = shared(request, node);
    if (!file) return;
    const ssize_t count = file->write(data, size, offset);
    if (count < 0) {
      fuse_reply_err(request, static_cast<int>(-count));
    } else {
      fuse_reply_write(request, static_cast<std::size_t>(count));
    }
  });
}

void MountSession::flush(fuse_req_t request, NodeId node) {
  guarded(request, [&] {
    const bool waits = parts_.files && parts_.awaited;
    const int error = waits ? parts_.files->settle(node) : 0;
    if (error != 0 || !waits || !isUnsent(node)) {
      fuse_reply_err(request, error);
      return;
    }
    afterVerdict(request, {node}, {}, [request] { fuse_reply_err(request, 0); });
  });
}

void MountSession::fsync(fuse_req_t request, NodeId node, bool dataOnly) {
  RequestLoop::passTurn();
  guarded(request, [&] {
    fuse_reply_err(request, parts_.files ? parts_.files->synchronize(node, dataOnly) : 0);
  });
}

void MountSession::fsyncFolder(fuse_req_t request) {
  RequestLoop::passTurn();
  guarded(request, [&] {
    if (parts_.edits) parts_.replica.synchronize();
    fuse_reply_err(request, 0);
  });
}

void MountSession::fallocate(fuse_req_t request, NodeId node, int mode, off_t offset,
                             off_t length) {
  RequestLoop::passTurn();
  guarded(request, [&] {
    const std::shared_ptr<WritableFile> file = shared(request, node);
    if (file) fuse_reply_err(request, file->allocate(mode, offset, length));
  });
}

void MountSession::copyRange(fuse_req_t request, NodeId from, off_t fromOffset, NodeId to,
                             off_t toOffset, std::size_t size) {
  RequestLoop::passTurn();
  guarded(request, [&] {
    const std::shared_ptr<WritableFile> source = shared(request, from);
    if (!source) return;
    const std::shared_ptr<WritableFile> target = shared(request, to);
    if (!target) return;
    const ssize_t count = target->copyFrom(*source, fromOffset, toOffset, size);
    if (count < 0) {
      fuse_reply_err(request, static_cast<int>(-count));
    } else {
      fuse_reply_write(request, static_cast<std::size_t>(count));
    }
  });
}

void MountSession::lseek(fuse_req_t request, NodeId node, off_t offset, int whence) {
  guarded(request, [&] {
    const std::shared_ptr<WritableFile> file = shared(request, node);
    if (!file) return;
    const off_t position = file->seek(offset, whence);
    if (position < 0) {
      fuse_reply_err(request, static_cast<int>(-position));
    } else {
      fuse_reply_lseek(request, position);
    }
  });
}

}  // namespace tulo
