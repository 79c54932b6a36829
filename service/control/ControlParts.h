// The parts of the service that the control socket asks and steers.
//
// Lifetime: all of them outlive the ControlServer whose requests are answered with them.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "service/contents/Contents.h"
#include "service/contents/Pins.h"
#include "service/control/Replies.h"
#include "service/control/Requests.h"
#include "service/control/StatusReply.h"
#include "service/edits/LocalFiles.h"
#include "service/kernel/Folders.h"
#include "service/kernel/OpenFiles.h"
#include "service/listing/SourceWatch.h"
#include "service/listing/Sync.h"
#include "service/replica/ContentStore.h"
#include "service/replica/Replica.h"
#include "service/upload/Uploader.h"

namespace tulo {

struct ControlParts {
  Replica& replica;
  Sync& sync;
  Contents& contents;
  ContentStore& store;
  SourceWatch& source;
  OpenFiles& openFiles;
  Folders& folders;
  LocalFiles& files;
  Pins& pins;
  Uploader& uploader;
  std::string domain;
  std::string mountPoint;
  bool readWrite = false;
  std::vector<control::KeptAccount> kept;
  // Takes the mount away; without one there is nothing in the way.
  std::function<control::UnmountReply(const control::UnmountRequest&)> leave;
  // Has the next round of the housekeeping begin at once.
  std::function<void()> poke;
};

}  // namespace tulo
