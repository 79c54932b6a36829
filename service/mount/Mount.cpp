#include "service/mount/Mount.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "platform/linux/FileDescriptor.h"
#include "service/base/ServiceLog.h"
#include "service/mount/MountSession.h"
#include "service/mount/RequestLoop.h"

namespace tulo {

namespace {

struct SessionDeleter {
  void operator()(fuse_session* session) const { fuse_session_destroy(session); }
};

// The kernel's requests.
class KernelRequests final : public RequestSource {
 public:
  KernelRequests(fuse_session* session, unsigned slots)
      : session_(session),
        device_(fuse_session_fd(session)),
        wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
        buffers_(slots) {
    const int flags = ::fcntl(device_, F_GETFL);
    if (!wake_ || flags < 0 || ::fcntl(device_, F_SETFL, flags | O_NONBLOCK) != 0) {
      throw MountError("cannot wait for the kernel's requests");
    }
  }
  ~KernelRequests() override {
    // libfuse allocates them.
    for (fuse_buf& buffer : buffers_)
      std::free(buffer.mem);
  }
  KernelRequests(const KernelRequests&) = delete;
  KernelRequests& operator=(const KernelRequests&) = delete;

  Taken take(unsigned slot) override {
    const int result = fuse_session_receive_buf(session_, &buffers_[slot]);
    if (result > 0) return Taken::request;
    return result == -EAGAIN || result == -EINTR ? Taken::nothing : Taken::end;
  }

  void await() override {
    std::array<pollfd, 2> descriptors = {{{device_, POLLIN, 0}, {wake_.get(), POLLIN, 0}}};
    ::poll(descriptors.data(), descriptors.size(), -1);
  }

  void wake() override { ::eventfd_write(wake_.get(), 1); }

  void handle(unsigned slot) override { fuse_session_process_buf(session_, &buffers_[slot]); }

 private:
  fuse_session* const session_;
  const int device_;
  const FileDescriptor wake_;
  std::vector<fuse_buf> buffers_;
};

void addChangingOperations(fuse_lowlevel_ops& operations);

const fuse_lowlevel_ops kOperations = [] {
  fuse_lowlevel_ops operations = {};
  operations.init = [](void* data, fuse_conn_info* connection) {
    static_cast<MountSession*>(data)->initialize(*connection);
  };
  operations.lookup = [](fuse_req_t request, fuse_ino_t parent, const char* name) {
    MountSession::of(request).lookup(request, NodeId(parent), name);
  };
  operations.forget = [](fuse_req_t request, fuse_ino_t node, std::uint64_t count) {
    MountSession::of(request).forget(NodeId(node), count);
    fuse_reply_none(request);
  };
  operations.forget_multi = [](fuse_req_t request, std::size_t count, fuse_forget_data* forgets) {
    for (std::size_t i = 0; i < count; ++i) {
      MountSession::of(request).forget(NodeId(forgets[i].ino), forgets[i].nlookup);
    }
    fuse_reply_none(request);
  };
  operations.getattr = [](fuse_req_t request, fuse_ino_t node, fuse_file_info*) {
    MountSession::of(request).getattr(request, NodeId(node));
  };
  operations.open = [](fuse_req_t request, fuse_ino_t node, fuse_file_info* info) {
    MountSession::of(request).open(request, NodeId(node), *info);
  };
  operations.read = [](fuse_req_t request, fuse_ino_t, std::size_t size, off_t offset,
                       fuse_file_info* info) {
    MountSession::of(request).read(request, size, offset, *info);
  };
  operations.release = [](fuse_req_t request, fuse_ino_t, fuse_file_info* info) {
    MountSession::of(request).release(request, *info);
  };
  // Cookies are node numbers, good without an open directory: the kernel need not ask again.
  operations.opendir = [](fuse_req_t request, fuse_ino_t, fuse_file_info*) {
    fuse_reply_err(request, ENOSYS);
  };
  operations.readdir = [](fuse_req_t request, fuse_ino_t node, std::size_t size, off_t offset,
                          fuse_file_info*) {
    MountSession::of(request).readdir(request, NodeId(node), size, offset, false);
  };
  operations.readdirplus = [](fuse_req_t request, fuse_ino_t node, std::size_t size, off_t offset,
                              fuse_file_info*) {
    MountSession::of(request).readdir(request, NodeId(node), size, offset, true);
  };
  operations.statfs = [](fuse_req_t request, fuse_ino_t) {
    MountSession::of(request).statfs(request);
  };
  operations.getxattr = [](fuse_req_t request, fuse_ino_t node, const char* name,
                           std::size_t size) {
    MountSession::of(request).getxattr(request, NodeId(node), name, size);
  };
  operations.listxattr = [](fuse_req_t request, fuse_ino_t node, std::size_t size) {
    MountSession::of(request).listxattr(request, NodeId(node), size);
  };
  addChangingOperations(operations);
  return operations;
}();

void addNameOperations(fuse_lowlevel_ops& operations) {
  operations.create = [](fuse_req_t request, fuse_ino_t folder, const char* name, mode_t mode,
                         fuse_file_info* info) {
    MountSession::of(request).create(request, NodeId(folder), name, mode, *info);
  };
  operations.mkdir = [](fuse_req_t request, fuse_ino_t folder, const char* name, mode_t mode) {
    MountSession::of(request).mkdir(request, NodeId(folder), name, mode);
  };
  operations.mknod = [](fuse_req_t request, fuse_ino_t folder, const char* name, mode_t mode,
                        dev_t) {
    MountSession::of(request).mknod(request, NodeId(folder), name, mode);
  };
  operations.symlink = [](fuse_req_t request, const char* target, fuse_ino_t folder,
                          const char* name) {
    MountSession::of(request).symlink(request, target, NodeId(folder), name);
  };
  operations.readlink = [](fuse_req_t request, fuse_ino_t node) {
    MountSession::of(request).readlink(request, NodeId(node));
  };
  operations.link = [](fuse_req_t request, fuse_ino_t, fuse_ino_t, const char*) {
    // The host has no such thing as a second name.
    fuse_reply_err(request, EPERM);
  };
  operations.unlink = [](fuse_req_t request, fuse_ino_t folder, const char* name) {
    MountSession::of(request).unlink(request, NodeId(folder), name);
  };
  operations.rmdir = [](fuse_req_t request, fuse_ino_t folder, const char* name) {
    MountSession::of(request).rmdir(request, NodeId(folder), name);
  };
  operations.rename = [](fuse_req_t request, fuse_ino_t folder, const char* name,
                         fuse_ino_t newFolder, const char* newName, unsigned flags) {
    MountSession::of(request).rename(request, NodeId(folder), name, NodeId(newFolder), newName,
                                     flags);
  };
}

void addDataOperations(fuse_lowlevel_ops& operations) {
  operations.setattr = [](fuse_req_t request, fuse_ino_t node, struct stat* wanted, int fields,
                          fuse_file_info*) {
    MountSession::of(request).setattr(request, NodeId(node), *wanted, fields);
  };
  operations.write = [](fuse_req_t request, fuse_ino_t node, const char* data, std::size_t size,
                        off_t offset, fuse_file_info*) {
    MountSession::of(request).write(request, NodeId(node), data, size, offset);
  };
  operations.flush = [](fuse_req_t request, fuse_ino_t node, fuse_file_info*) {
    MountSession::of(request).flush(request, NodeId(node));
  };
  operations.fsync = [](fuse_req_t request, fuse_ino_t node, int dataOnly, fuse_file_info*) {
    MountSession::of(request).fsync(request, NodeId(node), dataOnly != 0);
  };
  operations.fsyncdir = [](fuse_req_t request, fuse_ino_t, int, fuse_file_info*) {
    MountSession::of(request).fsyncFolder(request);
  };
  operations.fallocate = [](fuse_req_t request, fuse_ino_t node, int mode, off_t offset,
                            off_t length, fuse_file_info*) {
    MountSession::of(request).fallocate(request, NodeId(node), mode, offset, length);
  };
  operations.copy_file_range = [](fuse_req_t request, fuse_ino_t from, off_t fromOffset,
                                  fuse_file_info*, fuse_ino_t to, off_t toOffset, fuse_file_info*,
                                  std::size_t size, int) {
    MountSession::of(request).copyRange(request, NodeId(from), fromOffset, NodeId(to), toOffset,
                                        size);
  };
  operations.lseek = [](fuse_req_t request, fuse_ino_t node, off_t offset, int whence,
                        fuse_file_info*) {
    MountSession::of(request).lseek(request, NodeId(node), offset, whence);
  };
}

void addChangingOperations(fuse_lowlevel_ops& operations) {
  addNameOperations(operations);
  addDataOperations(operations);
}

std::string optionText(const MountOptions& options) {
  // A comma or backslash of the name would end or escape the option.
  std::string name;
  for (char c : options.name)
    name += c == ',' || c == '\\' ? '_' : c;
  std::string text = options.readWrite ? "rw," : "ro,";
  text += "nosuid,nodev,default_permissions,subtype=tulo,fsname=" + name;
  if (options.allowOther) text += ",allow_other";
  return text;
}

void checkMountPoint(const std::string& path) {
  struct stat status = {};
  if (::stat(path.c_str(), &status) != 0) {
    throw MountError("cannot mount at " + path + ": " + std::strerror(errno));
  }
  if (!S_ISDIR(status.st_mode)) throw MountError("cannot mount at " + path + ": not a directory");
}

// The device's minor number names the connection. Asking the mount itself could wait for ever.
std::string connectionNumber(const std::string& mountPoint) {
  std::error_code ignored;
  const std::string wanted = std::filesystem::absolute(mountPoint, ignored).lexically_normal();
  std::ifstream table("/proc/self/mountinfo");
  std::string line;
  std::string number;
  while (std::getline(table, line)) {
    std::istringstream fields(line);
    std::string identifier;
    std::string parent;
    std::string device;
    std::string root;
    std::string point;
    fields >> identifier >> parent >> device >> root >> point;
    if (point == wanted && line.find(" fuse.tulo ") != std::string::npos) {
      number = device.substr(device.find(':') + 1);
    }
  }
  return number;
}

int runProgram(const std::vector<const char*>& arguments) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::execvp(arguments[0], const_cast<char* const*>(arguments.data()));
    ::_exit(127);
  }
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) < 0) return -1;
  return status;
}

}  // namespace

const fuse_lowlevel_ops& MountSession::operations() {
  return kOperations;
}

struct Mount::Session {
  Session(const MountOptions& options, const MountParts& parts)
      : mountPoint(options.mountPoint), handlers(parts, ::getuid(), ::getgid()) {
    std::string program = "tulo";
    std::string flag = "-o";
    std::string text = optionText(options);
    std::string debug = "-d";
    std::vector<char*> words = {program.data(), flag.data(), text.data()};
    if (options.debug) words.push_back(debug.data());
    fuse_args arguments = FUSE_ARGS_INIT(static_cast<int>(words.size()), words.data());
    fuse.reset(fuse_session_new(&arguments, &MountSession::operations(), sizeof(fuse_lowlevel_ops),
                                &handlers));
    fuse_opt_free_args(&arguments);
    if (!fuse) throw MountError("cannot start a FUSE session");
    if (fuse_session_mount(fuse.get(), options.mountPoint.c_str()) != 0) {
      throw MountError("cannot mount at " + options.mountPoint +
                       " (is /dev/fuse there, and may this user use it?)");
    }
    const RequestLoop::Options loopOptions = RequestLoop::usualOptions();
    requests = std::make_unique<KernelRequests>(fuse.get(), loopOptions.threads);
    loop = std::make_unique<RequestLoop>(*requests, loopOptions);
  }

  ~Session() {
    handlers.stop();
    fuse_session_unmount(fuse.get());
  }

  const std::string mountPoint;
  MountSession handlers;
  std::unique_ptr<fuse_session, SessionDeleter> fuse;
  std::unique_ptr<KernelRequests> requests;
  std::unique_ptr<RequestLoop> loop;
};

Mount::Mount(const MountOptions& options, const MountParts& parts) {
  clearStale(options.mountPoint);
  checkMountPoint(options.mountPoint);
  session_ = std::make_unique<Session>(options, parts);
}

Mount::~Mount() = default;

void Mount::run() {
  session_->loop->run();
}

void Mount::stop() {
  session_->loop->stop();
}

void Mount::abort() {
  const std::string number = connectionNumber(session_->mountPoint);
  if (number.empty()) return;
  const FileDescriptor file(
      ::open(("/sys/fs/fuse/connections/" + number + "/abort").c_str(), O_WRONLY | O_CLOEXEC));
  const bool aborted = file && ::write(file.get(), "1", 1) == 1;
  if (!aborted) ::umount2(session_->mountPoint.c_str(), MNT_FORCE | MNT_DETACH);
}

void Mount::deliver(const Invalidation& invalidation) {
  fuse_session* fuse = session_->fuse.get();
  const auto dropName = [&] {
    fuse_lowlevel_notify_inval_entry(fuse, invalidation.folder.number(), invalidation.name.data(),
                                     invalidation.name.size());
  };
  // What the kernel does not know needs no invalidation, so "not found" is no error.
  switch (invalidation.kind) {
    case Invalidation::Kind::entryChanged:
      dropName();
      break;
    case Invalidation::Kind::entryDeleted:
      // Refused for a folder with something remembered under it, and for a name that already
      // stands for another node.
      if (fuse_lowlevel_notify_delete(fuse, invalidation.folder.number(),
                                      invalidation.node.number(), invalidation.name.data(),
                                      invalidation.name.size()) != 0) {
        dropName();
      }
      break;
    case Invalidation::Kind::attributesChanged:
      fuse_lowlevel_notify_inval_inode(fuse, invalidation.node.number(), -1, 0);
      break;
    case Invalidation::Kind::dataChanged:
      fuse_lowlevel_notify_inval_inode(fuse, invalidation.node.number(), 0, 0);
      break;
  }
}

bool Mount::clearStale(const std::string& mountPoint) {
  // The kernel may still know the root's attributes; this question it always passes on.
  struct statfs status = {};
  if (::statfs(mountPoint.c_str(), &status) == 0 || errno != ENOTCONN) return false;
  serviceLog().info("clearing the stale mount at %{public}@", {mountPoint});
  if (::umount2(mountPoint.c_str(), MNT_DETACH) == 0) return true;
  return runProgram({"fusermount3", "-uz", mountPoint.c_str(), nullptr}) == 0;
}

}  // namespace tulo
