#include "service/mount/NameRequests.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
#include <utility>

#include "service/mount/MountGuard.h"
#include "service/mount/Replies.h"

namespace tulo {

NameRequests::NameRequests(const MountParts& parts, const EntryReplies& entries, Handles& handles,
                           VerdictReplies& verdicts)
    : replica_(parts.replica),
      sync_(parts.sync),
      contents_(parts.contents),
      edits_(parts.edits),
      entries_(entries),
      handles_(handles),
      verdicts_(verdicts) {}

void NameRequests::create(fuse_req_t request, NodeId folder, const char* name, mode_t mode,
                          const fuse_file_info& wanted) {
  guarded(request, [&] {
    if (refuseLongName(request, name)) return;
    const EditResult made = edits_->makeOpenFile(folder, name, static_cast<int>(mode));
    if (made.error == 0) return openMade(request, made.entry, wanted);
    // Somebody was faster: the kernel looks again and opens that one.
    const bool again = made.error == EEXIST && (wanted.flags & O_EXCL) == 0;
    fuse_reply_err(request, again ? ESTALE : made.error);
  });
}

void NameRequests::openMade(fuse_req_t request, const Entry& made, const fuse_file_info& wanted) {
  std::unique_ptr<OpenFile> file = contents_.openNew(made);
  const int error = handles_.prepareToWrite(wanted, *file);
  const fuse_file_info info = handles_.give(request, wanted, std::move(file));
  if (error != 0) {
    fuse_reply_err(request, error);
    handles_.drop(nullptr, info);
    return;
  }
  const fuse_entry_param answer = entries_.parameters(made);
  if (fuse_reply_create(request, &answer, &info) != 0) handles_.drop(nullptr, info);
}

void NameRequests::replyMade(fuse_req_t request, const EditResult& made) const {
  if (made.error != 0) {
    fuse_reply_err(request, made.error);
  } else {
    entries_.reply(request, made.entry);
  }
}

void NameRequests::mkdir(fuse_req_t request, NodeId folder, const char* name, mode_t mode) {
  guarded(request, [&] {
    if (refuseLongName(request, name)) return;
    const EditResult made = edits_->makeFolder(folder, name, static_cast<int>(mode));
    if (made.error != 0) {
      fuse_reply_err(request, made.error);
      return;
    }
    verdicts_.reply(request, {made.entry.id}, {entryChanged(folder, name)},
                    [this, request, entry = made.entry] { entries_.reply(request, entry); });
  });
}

void NameRequests::mknod(fuse_req_t request, NodeId folder, const char* name, mode_t mode) {
  guarded(request, [&] {
    if (refuseLongName(request, name)) return;
    if (!S_ISREG(mode) && (mode & S_IFMT) != 0) {
      fuse_reply_err(request, EPERM);
      return;
    }
    replyMade(request, edits_->makeFile(folder, name, static_cast<int>(mode)));
  });
}

void NameRequests::symlink(fuse_req_t request, const char* target, NodeId folder,
                           const char* name) {
  guarded(request, [&] {
    if (refuseLongName(request, name)) return;
    replyMade(request, edits_->makeLink(folder, name, target));
  });
}

void NameRequests::readlink(fuse_req_t request, NodeId node) {
  guarded(request, [&] {
    const std::optional<std::string> target = edits_ ? edits_->readLink(node) : std::nullopt;
    if (target) {
      fuse_reply_readlink(request, target->c_str());
    } else {
      fuse_reply_err(request, EINVAL);
    }
  });
}

void NameRequests::unlink(fuse_req_t request, NodeId folder, const char* name) {
  guarded(request, [&] {
    const NodeId node = verdicts_.nodeNamed(folder, name);
    replyRemoved(request, edits_->removeFile(folder, name), node, folder, name);
  });
}

void NameRequests::rmdir(fuse_req_t request, NodeId folder, const char* name) {
  guarded(request, [&] {
    whenListed(request, folder, name, [this, request, folder, text = std::string(name)] {
      const NodeId node = verdicts_.nodeNamed(folder, text);
      replyRemoved(request, edits_->removeFolder(folder, text), node, folder, text);
    });
  });
}

void NameRequests::replyRemoved(fuse_req_t request, int error, NodeId node, NodeId folder,
                                const std::string& name) {
  if (error != 0) {
    fuse_reply_err(request, error);
    return;
  }
  verdicts_.reply(request, {node}, {entryChanged(folder, name)},
                  [request] { fuse_reply_err(request, 0); });
}

void NameRequests::whenListed(fuse_req_t request, NodeId folder, const std::string& name,
                              std::function<void()> then) {
  const NameLookup found =
      replica_.readBriefly([&](ReplicaReader& reader) { return reader.lookup(folder, name); });
  if (!found.entry || found.entry->kind != NodeKind::folder) return then();
  const NodeId child = found.entry->id;
  const NameLookup inside =
      replica_.read([&](ReplicaReader& reader) { return reader.lookup(child, ""); });
  if (sync_.freshness(child, inside.listed) == Freshness::current) return then();
  sync_.refresh(child, [request, then = std::move(then)](int error) {
    if (error != 0) {
      fuse_reply_err(request, error);
    } else {
      guarded(request, then);
    }
  });
}

void NameRequests::rename(fuse_req_t request, NodeId folder, const char* name, NodeId newFolder,
                          const char* newName, unsigned flags) {
  guarded(request, [&] {
    if (refuseLongName(request, newName)) return;
    const Renaming renaming{folder, name, newFolder, newName, flags};
    // Asked so, nothing is replaced.
    if ((flags & (RENAME_EXCHANGE | RENAME_NOREPLACE)) != 0) return rename(request, renaming);
    // What would be replaced must be known to be empty.
    whenListed(request, newFolder, newName,
               [this, request, renaming] { rename(request, renaming); });
  });
}

void NameRequests::rename(fuse_req_t request, const Renaming& renaming) {
  const auto& [folder, name, newFolder, newName, flags] = renaming;
  const int error = edits_->rename(folder, name, newFolder, newName, flags);
  if (error != 0) {
    fuse_reply_err(request, error);
    return;
  }
  // The other one is there after an exchange.
  verdicts_.reply(request,
                  {verdicts_.nodeNamed(newFolder, newName), verdicts_.nodeNamed(folder, name)},
                  {entryChanged(folder, name), entryChanged(newFolder, newName)},
                  [request] { fuse_reply_err(request, 0); });
}

}  // namespace tulo
