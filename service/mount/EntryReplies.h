// What the kernel is told of an entry. Private to the mount.
//
// Threads: every member may be called on any thread.
#pragma once

#include <sys/stat.h>

#include "service/edits/LocalFiles.h"
#include "service/kernel/Folders.h"
#include "service/mount/Fuse.h"
#include "service/mount/MountParts.h"
#include "service/replica/Node.h"

namespace tulo {

// Entries and attributes are valid until something is said to the contrary.
inline constexpr double kForever = 7.0 * 24 * 3600;

class EntryReplies {
 public:
  // Everything belongs to this user and group.
  EntryReplies(const MountParts& parts, uid_t user, gid_t group);

  struct stat attributes(const Entry& entry) const;
  fuse_entry_param parameters(const Entry& entry) const;
  // All that a listing without attributes has of an entry.
  static fuse_entry_param withTypeOnly(const Entry& entry);
  // Answers with the entry, and counts the reference that the kernel has on a folder then.
  void reply(fuse_req_t request, const Entry& entry) const;
  // Whether setattr(2) asks for somebody else as the owner.
  bool changesOwner(const struct stat& wanted, int fields) const;

 private:
  Folders& folders_;
  const LocalFiles* const files_;
  const uid_t user_;
  const gid_t group_;
};

}  // namespace tulo
