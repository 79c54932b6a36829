#include "service/mount/Operations.h"

#include <cerrno>

#include "service/mount/Handlers.h"

namespace tulo {

namespace {

void addTreeOperations(fuse_lowlevel_ops& operations) {
  operations.lookup = [](fuse_req_t request, fuse_ino_t parent, const char* name) {
    Handlers::of(request).tree.lookup(request, NodeId(parent), name);
  };
  operations.forget = [](fuse_req_t request, fuse_ino_t node, std::uint64_t count) {
    Handlers::of(request).tree.forget(NodeId(node), count);
    fuse_reply_none(request);
  };
  operations.forget_multi = [](fuse_req_t request, std::size_t count, fuse_forget_data* forgets) {
    for (std::size_t i = 0; i < count; ++i) {
      Handlers::of(request).tree.forget(NodeId(forgets[i].ino), forgets[i].nlookup);
    }
    fuse_reply_none(request);
  };
  operations.getattr = [](fuse_req_t request, fuse_ino_t node, fuse_file_info*) {
    Handlers::of(request).tree.getattr(request, NodeId(node));
  };
  operations.statfs = [](fuse_req_t request, fuse_ino_t) {
    Handlers::of(request).tree.statfs(request);
  };
}

void addFolderOperations(fuse_lowlevel_ops& operations) {
  // Cookies are node numbers, good without an open directory: the kernel need not ask again.
  operations.opendir = [](fuse_req_t request, fuse_ino_t, fuse_file_info*) {
    fuse_reply_err(request, ENOSYS);
  };
  operations.readdir = [](fuse_req_t request, fuse_ino_t node, std::size_t size, off_t offset,
                          fuse_file_info*) {
    Handlers::of(request).directories.readdir(request, {NodeId(node), size, offset, false});
  };
  operations.readdirplus = [](fuse_req_t request, fuse_ino_t node, std::size_t size, off_t offset,
                              fuse_file_info*) {
    Handlers::of(request).directories.readdir(request, {NodeId(node), size, offset, true});
  };
  operations.fsyncdir = [](fuse_req_t request, fuse_ino_t, int, fuse_file_info*) {
    Handlers::of(request).writing.fsyncFolder(request);
  };
}

void addAttributeOperations(fuse_lowlevel_ops& operations) {
  operations.getxattr = [](fuse_req_t request, fuse_ino_t node, const char* name,
                           std::size_t size) {
    Handlers::of(request).attributes.getxattr(request, NodeId(node), name, size);
  };
  operations.listxattr = [](fuse_req_t request, fuse_ino_t node, std::size_t size) {
    Handlers::of(request).attributes.listxattr(request, NodeId(node), size);
  };
  operations.setattr = [](fuse_req_t request, fuse_ino_t node, struct stat* wanted, int fields,
                          fuse_file_info*) {
    Handlers::of(request).settings.setattr(request, NodeId(node), *wanted, fields);
  };
}

void addFileOperations(fuse_lowlevel_ops& operations) {
  operations.open = [](fuse_req_t request, fuse_ino_t node, fuse_file_info* info) {
    Handlers::of(request).opening.open(request, NodeId(node), *info);
  };
  operations.read = [](fuse_req_t request, fuse_ino_t, std::size_t size, off_t offset,
                       fuse_file_info* info) {
    Handlers::of(request).reading.read(request, size, offset, *info);
  };
  operations.release = [](fuse_req_t request, fuse_ino_t, fuse_file_info* info) {
    Handlers::of(request).opening.release(request, *info);
  };
}

void addMakingOperations(fuse_lowlevel_ops& operations) {
  operations.create = [](fuse_req_t request, fuse_ino_t folder, const char* name, mode_t mode,
                         fuse_file_info* info) {
    Handlers::of(request).names.create(request, NodeId(folder), name, mode, *info);
  };
  operations.mkdir = [](fuse_req_t request, fuse_ino_t folder, const char* name, mode_t mode) {
    Handlers::of(request).names.mkdir(request, NodeId(folder), name, mode);
  };
  operations.mknod = [](fuse_req_t request, fuse_ino_t folder, const char* name, mode_t mode,
                        dev_t) {
    Handlers::of(request).names.mknod(request, NodeId(folder), name, mode);
  };
  operations.symlink = [](fuse_req_t request, const char* target, fuse_ino_t folder,
                          const char* name) {
    Handlers::of(request).names.symlink(request, target, NodeId(folder), name);
  };
  operations.readlink = [](fuse_req_t request, fuse_ino_t node) {
    Handlers::of(request).names.readlink(request, NodeId(node));
  };
  operations.link = [](fuse_req_t request, fuse_ino_t, fuse_ino_t, const char*) {
    // The host has no such thing as a second name.
    fuse_reply_err(request, EPERM);
  };
}

void addMovingOperations(fuse_lowlevel_ops& operations) {
  operations.unlink = [](fuse_req_t request, fuse_ino_t folder, const char* name) {
    Handlers::of(request).names.unlink(request, NodeId(folder), name);
  };
  operations.rmdir = [](fuse_req_t request, fuse_ino_t folder, const char* name) {
    Handlers::of(request).names.rmdir(request, NodeId(folder), name);
  };
  operations.rename = [](fuse_req_t request, fuse_ino_t folder, const char* name,
                         fuse_ino_t newFolder, const char* newName, unsigned flags) {
    Handlers::of(request).names.rename(request, NodeId(folder), name, NodeId(newFolder), newName,
                                       flags);
  };
}

void addWritingOperations(fuse_lowlevel_ops& operations) {
  operations.write = [](fuse_req_t request, fuse_ino_t node, const char* data, std::size_t size,
                        off_t offset, fuse_file_info*) {
    Handlers::of(request).writing.write(request, NodeId(node), data, size, offset);
  };
  operations.flush = [](fuse_req_t request, fuse_ino_t node, fuse_file_info*) {
    Handlers::of(request).writing.flush(request, NodeId(node));
  };
  operations.fsync = [](fuse_req_t request, fuse_ino_t node, int dataOnly, fuse_file_info*) {
    Handlers::of(request).writing.fsync(request, NodeId(node), dataOnly != 0);
  };
  operations.fallocate = [](fuse_req_t request, fuse_ino_t node, int mode, off_t offset,
                            off_t length, fuse_file_info*) {
    Handlers::of(request).writing.fallocate(request, NodeId(node), mode, offset, length);
  };
  operations.copy_file_range = [](fuse_req_t request, fuse_ino_t from, off_t fromOffset,
                                  fuse_file_info*, fuse_ino_t to, off_t toOffset, fuse_file_info*,
                                  std::size_t size, int) {
    Handlers::of(request).writing.copyRange(request, {NodeId(from), fromOffset},
                                            {NodeId(to), toOffset}, size);
  };
  operations.lseek = [](fuse_req_t request, fuse_ino_t node, off_t offset, int whence,
                        fuse_file_info*) {
    Handlers::of(request).writing.lseek(request, NodeId(node), offset, whence);
  };
}

}  // namespace

const fuse_lowlevel_ops& operations() {
  static const fuse_lowlevel_ops table = [] {
    fuse_lowlevel_ops operations = {};
    operations.init = [](void* data, fuse_conn_info* connection) {
      static_cast<Handlers*>(data)->initialize(*connection);
    };
    addTreeOperations(operations);
    addFolderOperations(operations);
    addAttributeOperations(operations);
    addFileOperations(operations);
    addMakingOperations(operations);
    addMovingOperations(operations);
    addWritingOperations(operations);
    return operations;
  }();
  return table;
}

}  // namespace tulo
