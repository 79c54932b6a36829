// What the kernel's requests are answered from. Private to the mount, but for who puts it together.
#pragma once

#include <functional>
#include <string>

#include "service/base/Time.h"
#include "service/contents/Contents.h"
#include "service/edits/Edits.h"
#include "service/kernel/Folders.h"
#include "service/kernel/Notifier.h"
#include "service/listing/Sync.h"
#include "service/replica/Replica.h"
#include "service/upload/Uploader.h"

namespace tulo {

struct MountParts {
  Replica& replica;
  Sync& sync;
  Contents& contents;
  OpenFiles& openFiles;
  Folders& folders;
  Notifier& notifier;
  std::string domain;
  // Somebody lists the folder. Must return at once.
  std::function<void(NodeId)> listed;
  // Null for a mount in which nothing can be changed.
  Edits* edits = nullptr;
  LocalFiles* files = nullptr;
  // Set: closing a changed file, renaming, making folders and removing wait for the host's word, up
  // to `patience`.
  Uploader* awaited = nullptr;
  milliseconds patience{};
};

}  // namespace tulo
