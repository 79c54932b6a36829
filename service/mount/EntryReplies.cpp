#include "service/mount/EntryReplies.h"

#include "platform/FileProvider.h"

namespace tulo {

namespace {

unsigned permissions(const Entry& entry, unsigned usual) {
  const unsigned bits = entry.mode != 0 ? static_cast<unsigned>(entry.mode) & 0777U : usual;
  const bool writable =
      (entry.capabilities & platform::NSFileProviderItemCapabilitiesAllowsWriting) != 0;
  return writable ? bits : bits & ~0222U;
}

mode_t typeOf(const Entry& entry) {
  if (entry.kind == NodeKind::folder) return S_IFDIR;
  return entry.kind == NodeKind::link ? S_IFLNK : S_IFREG;
}

void addKind(struct stat& status, const Entry& entry) {
  status.st_mode = typeOf(entry);
  if (entry.kind == NodeKind::folder) {
    status.st_mode |= permissions(entry, 0700U);
    return;
  }
  status.st_size = entry.size;
  if (entry.kind == NodeKind::link) {
    status.st_mode |= 0777U;
    return;
  }
  status.st_mode |= permissions(entry, 0600U);
  status.st_blocks = entry.blocks;
}

}  // namespace

EntryReplies::EntryReplies(const MountParts& parts, uid_t user, gid_t group)
    : folders_(parts.folders), files_(parts.files), user_(user), group_(group) {}

struct stat EntryReplies::attributes(const Entry& row) const {
  Entry entry = row;
  if (files_) files_->overlay(entry);
  struct stat status = {};
  status.st_ino = entry.id.number();
  status.st_uid = user_;
  status.st_gid = group_;
  status.st_nlink = 1;
  status.st_mtim = entry.modified.spec();
  status.st_ctim = status.st_mtim;
  status.st_atim = status.st_mtim;
  status.st_blksize = 4096;
  addKind(status, entry);
  return status;
}

fuse_entry_param EntryReplies::parameters(const Entry& entry) const {
  fuse_entry_param parameters = {};
  parameters.ino = entry.id.number();
  parameters.generation = 1;
  parameters.attr = attributes(entry);
  parameters.attr_timeout = kForever;
  parameters.entry_timeout = kForever;
  return parameters;
}

fuse_entry_param EntryReplies::withTypeOnly(const Entry& entry) {
  fuse_entry_param parameters = {};
  parameters.ino = entry.id.number();
  parameters.attr.st_ino = entry.id.number();
  parameters.attr.st_mode = typeOf(entry);
  return parameters;
}

void EntryReplies::reply(fuse_req_t request, const Entry& entry) const {
  const fuse_entry_param answer = parameters(entry);
  // Counted first: the kernel may forget the folder before this thread goes on.
  if (entry.kind == NodeKind::folder) folders_.remembered(entry.id);
  if (fuse_reply_entry(request, &answer) != 0 && entry.kind == NodeKind::folder) {
    folders_.forgotten(entry.id, 1);
  }
}

bool EntryReplies::changesOwner(const struct stat& wanted, int fields) const {
  if ((fields & FUSE_SET_ATTR_UID) != 0 && wanted.st_uid != user_) return true;
  return (fields & FUSE_SET_ATTR_GID) != 0 && wanted.st_gid != group_;
}

}  // namespace tulo
