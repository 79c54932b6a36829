// What answers the kernel's requests, by what they are about. Private to the mount.
//
// Lifetime: stop() once requests are no longer read; everything in MountParts outlives it.
#pragma once

#include "service/mount/AttributeRequests.h"
#include "service/mount/DirectoryRequests.h"
#include "service/mount/EntryReplies.h"
#include "service/mount/Fuse.h"
#include "service/mount/Handles.h"
#include "service/mount/Interrupts.h"
#include "service/mount/MountParts.h"
#include "service/mount/NameRequests.h"
#include "service/mount/OpenRequests.h"
#include "service/mount/Passthrough.h"
#include "service/mount/ReadRequests.h"
#include "service/mount/SetAttributeRequests.h"
#include "service/mount/TreeRequests.h"
#include "service/mount/VerdictReplies.h"
#include "service/mount/WriteRequests.h"

namespace tulo {

struct Handlers {
  // Everything belongs to this user and group.
  Handlers(const MountParts& parts, uid_t user, gid_t group);
  Handlers(const Handlers&) = delete;
  Handlers& operator=(const Handlers&) = delete;

  // Those that the session was made with.
  static Handlers& of(fuse_req_t request) {
    return *static_cast<Handlers*>(fuse_req_userdata(request));
  }

  // The connection is made; before the first request.
  void initialize(fuse_conn_info& connection);
  // Ends the threads of these objects.
  void stop() { interrupts.stop(); }

  const bool writable;
  const EntryReplies entries;
  Passthrough passthrough;
  Interrupts interrupts;
  VerdictReplies verdicts;
  Handles handles;
  TreeRequests tree;
  DirectoryRequests directories;
  AttributeRequests attributes;
  OpenRequests opening;
  ReadRequests reading;
  NameRequests names;
  SetAttributeRequests settings;
  WriteRequests writing;
};

}  // namespace tulo
