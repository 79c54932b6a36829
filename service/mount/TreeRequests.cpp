#include "service/mount/TreeRequests.h"

#include <sys/statvfs.h>

#include <cerrno>

#include "service/mount/MountGuard.h"
#include "service/mount/Replies.h"

namespace tulo {

TreeRequests::TreeRequests(const MountParts& parts, const EntryReplies& entries)
    : replica_(parts.replica),
      sync_(parts.sync),
      openFiles_(parts.openFiles),
      folders_(parts.folders),
      entries_(entries) {}

NameLookup TreeRequests::find(NodeId folder, const std::string& name) {
  return replica_.readBriefly([&](ReplicaReader& reader) { return reader.lookup(folder, name); });
}

bool TreeRequests::tryLookup(fuse_req_t request, NodeId folder, const std::string& name) {
  const NameLookup found = find(folder, name);
  if (found.folderExists) {
    const Freshness freshness = sync_.freshness(folder, found.listed);
    // What was seen since the service started and changed since is on its way (the sweep); only a
    // name that is not here has to be looked for first.
    const bool goodEnough = freshness == Freshness::current ||
                            (freshness == Freshness::older && found.entry.has_value());
    if (!goodEnough) return false;
  }
  replyLookup(request, found, 0);
  return true;
}

void TreeRequests::replyLookup(fuse_req_t request, const NameLookup& found, int error) {
  if (!found.folderExists) {
    fuse_reply_err(request, ESTALE);
  } else if (found.entry) {
    entries_.reply(request, *found.entry);
  } else if (error != 0 && found.listed == 0) {
    fuse_reply_err(request, error);
  } else {
    fuse_entry_param nothing = {};
    nothing.entry_timeout = error == 0 ? kForever : 0;
    fuse_reply_entry(request, &nothing);
  }
}

void TreeRequests::finishLookup(fuse_req_t request, NodeId folder, const std::string& name,
                                int error) {
  guarded(request, [&] { replyLookup(request, find(folder, name), error); });
}

void TreeRequests::lookup(fuse_req_t request, NodeId folder, const char* name) {
  guarded(request, [&] {
    if (refuseLongName(request, name)) return;
    folders_.used(folder);
    if (tryLookup(request, folder, name)) return;
    sync_.refresh(folder, [this, request, folder, text = std::string(name)](int error) {
      finishLookup(request, folder, text, error);
    });
  });
}

void TreeRequests::getattr(fuse_req_t request, NodeId node) {
  guarded(request, [&] {
    auto entry = openFiles_.leftBehind(node);
    if (!entry) {
      entry = replica_.readBriefly([&](ReplicaReader& reader) { return reader.entry(node); });
    }
    bool unlinked = false;
    if (!entry && openFiles_.isOpen(node)) {
      entry = replica_.read(
          [&](ReplicaReader& reader) -> std::optional<Entry> { return reader.node(node); });
      unlinked = true;
    }
    if (!entry) {
      fuse_reply_err(request, ESTALE);
      return;
    }
    struct stat status = entries_.attributes(*entry);
    if (unlinked) status.st_nlink = 0;
    fuse_reply_attr(request, &status, kForever);
  });
}

void TreeRequests::statfs(fuse_req_t request) {
  struct statvfs status = {};
  if (::statvfs(replica_.directory().c_str(), &status) != 0) {
    fuse_reply_err(request, errno);
    return;
  }
  status.f_namemax = 255;
  fuse_reply_statfs(request, &status);
}

}  // namespace tulo
