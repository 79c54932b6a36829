// What the FUSE handlers share. Private to the mount.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "service/base/WorkQueue.h"
#include "service/mount/Fuse.h"
#include "service/mount/Mount.h"
#include "service/mount/Passthrough.h"

namespace tulo {

// Entries and attributes are valid until something is said to the contrary.
inline constexpr double kForever = 7.0 * 24 * 3600;

class MountSession {
 public:
  MountSession(const MountParts& parts, uid_t user, gid_t group);

  static MountSession& of(fuse_req_t request) {
    return *static_cast<MountSession*>(fuse_req_userdata(request));
  }
  static const fuse_lowlevel_ops& operations();

  void initialize(fuse_conn_info& connection);
  void lookup(fuse_req_t request, NodeId folder, const char* name);
  void forget(NodeId node, std::uint64_t count) { parts_.folders.forgotten(node, count); }
  void getattr(fuse_req_t request, NodeId node);
  void open(fuse_req_t request, NodeId node, const fuse_file_info& info);
  void read(fuse_req_t request, std::size_t size, off_t offset, const fuse_file_info& info);
  void release(fuse_req_t request, const fuse_file_info& info);
  void create(fuse_req_t request, NodeId folder, const char* name, mode_t mode,
              const fuse_file_info& info);
  void mkdir(fuse_req_t request, NodeId folder, const char* name, mode_t mode);
  void mknod(fuse_req_t request, NodeId folder, const char* name, mode_t mode);
  void symlink(fuse_req_t request, const char* target, NodeId folder, const char* name);
  void readlink(fuse_req_t request, NodeId node);
  void unlink(fuse_req_t request, NodeId folder, const char* name);
  void rmdir(fuse_req_t request, NodeId folder, const char* name);
  void rename(fuse_req_t request, NodeId folder, const char* name, NodeId newFolder,
              const char* newName, unsigned flags);
  void setattr(fuse_req_t request, NodeId node, const struct stat& wanted, int fields);
  void write(fuse_req_t request, NodeId node, const char* data, std::size_t size, off_t offset);
  void flush(fuse_req_t request, NodeId node);
  void fsync(fuse_req_t request, NodeId node, bool dataOnly);
  void fsyncFolder(fuse_req_t request);
  void fallocate(fuse_req_t request, NodeId node, int mode, off_t offset, off_t length);
  void copyRange(fuse_req_t request, NodeId from, off_t fromOffset, NodeId to, off_t toOffset,
                 std::size_t size);
  void lseek(fuse_req_t request, NodeId node, off_t offset, int whence);
  void readdir(fuse_req_t request, NodeId folder, std::size_t size, off_t offset, bool plus);
  void statfs(fuse_req_t request);
  void getxattr(fuse_req_t request, NodeId node, const char* name, std::size_t size);
  void listxattr(fuse_req_t request, NodeId node, std::size_t size);
  // Ends the threads of this object; requests are no longer read.
  void stop();

 private:
  struct stat attributes(const Entry& entry) const;
  fuse_entry_param parameters(const Entry& entry) const;
  // False when the folder must be refreshed before the question can be answered.
  bool answerLookup(fuse_req_t request, NodeId folder, const std::string& name, bool refreshed,
                    int error);
  void replyEntry(fuse_req_t request, const Entry& entry);
  // Answers the request when no folder can hold such a name.
  static bool tooLong(fuse_req_t request, const char* name);
  // Opening.
  bool writesThrough(const fuse_file_info& info, OpenFile& file, int& error);
  // Whether close(2) has something to wait for; otherwise the release does all.
  bool asksWhenClosing(bool writes) const { return writes && parts_.awaited; }
  void openEmptied(fuse_req_t request, NodeId node, const fuse_file_info& info);
  bool readShared(fuse_req_t request, OpenFile& file, std::size_t size, off_t offset);
  // Without a request when the answer to the open did not arrive.
  void drop(fuse_req_t request, const fuse_file_info& info);
  // The contents of a node that is open; answers the request and gives null when there are none.
  std::shared_ptr<WritableFile> shared(fuse_req_t request, NodeId node);
  void resize(fuse_req_t request, NodeId node, const struct stat& wanted, int fields);
  void applyAttributes(fuse_req_t request, NodeId node, const struct stat& wanted, int fields);
  int truncate(NodeId node, off_t size);
  // Runs `then` once the folder of that name in a folder is up to date.
  void whenListed(fuse_req_t request, NodeId folder, const std::string& name,
                  std::function<void()> then);
  // With --sync: answers with the host's word on what was just changed. When that is a failure the
  // kernel takes the call for one that did nothing, so it is told to look at the names again.
  void afterVerdict(fuse_req_t request, const std::vector<NodeId>& nodes, Invalidations names,
                    std::function<void()> succeeded);
  // The node of that name; kNoNode when there is none.
  NodeId nodeNamed(NodeId folder, const std::string& name);
  bool isUnsent(NodeId file);
  void replyOpen(fuse_req_t request, fuse_file_info info, OpenAnswer answer);
  void openWaiting(fuse_req_t request, NodeId node, const fuse_file_info& info);
  void fillDirectory(fuse_req_t request, NodeId folder, std::size_t size, off_t offset, bool plus);
  bool addDots(fuse_req_t request, NodeId folder, off_t offset, bool plus, class DirectoryBuffer&);

  MountParts parts_;
  const uid_t user_;
  const gid_t group_;
  Passthrough passthrough_;
  // Interrupts arrive on threads that must not answer the request that they are about.
  WorkQueue interrupts_;
};

// The attributes shown for a node: user.tulo.*
namespace attributes {
struct Subject {
  Node node;
  std::optional<Change> change;  // that the host has not heard of yet
};
std::optional<Subject> subject(ReplicaReader& reader, NodeId node);

std::vector<std::string> names(const Subject& subject);
// Nothing when there is no such attribute.
std::optional<std::string> value(const Subject& subject, std::string_view name,
                                 std::string_view domain);
}  // namespace attributes

}  // namespace tulo
