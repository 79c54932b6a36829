// Making, removing and renaming what is in folders. Private to the mount.
//
// Threads: every member may be called on any thread. With --sync a request is answered from the
// host's verdict, else before the call returns, or once a folder was listed that has to be known.
#pragma once

#include <functional>
#include <string>

#include "service/mount/EntryReplies.h"
#include "service/mount/Fuse.h"
#include "service/mount/Handles.h"
#include "service/mount/MountParts.h"
#include "service/mount/VerdictReplies.h"

namespace tulo {

class NameRequests {
 public:
  NameRequests(const MountParts& parts, const EntryReplies& entries, Handles& handles,
               VerdictReplies& verdicts);

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

 private:
  struct Renaming {
    NodeId folder;
    std::string name;
    NodeId newFolder;
    std::string newName;
    unsigned flags;
  };
  void rename(fuse_req_t request, const Renaming& renaming);
  void openMade(fuse_req_t request, const Entry& made, const fuse_file_info& wanted);
  void replyMade(fuse_req_t request, const EditResult& made) const;
  void replyRemoved(fuse_req_t request, int error, NodeId node, NodeId folder,
                    const std::string& name);
  // Runs `then` once the folder of that name in a folder, if there is one, is up to date.
  void whenListed(fuse_req_t request, NodeId folder, const std::string& name,
                  std::function<void()> then);

  Replica& replica_;
  Sync& sync_;
  Contents& contents_;
  // Null in a mount in which nothing can be changed.
  Edits* const edits_;
  const EntryReplies& entries_;
  Handles& handles_;
  VerdictReplies& verdicts_;
};

}  // namespace tulo
