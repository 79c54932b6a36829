// Everything that a mount shows and what keeps it true, put together.
//
// Threads: those of each part.
// Lifetime: a part is named after those that it uses, so it ends before them.
#pragma once

#include <memory>

#include "service/EngineOptions.h"
#include "service/Storage.h"
#include "service/contents/Contents.h"
#include "service/contents/Pins.h"
#include "service/edits/Edits.h"
#include "service/edits/LocalFiles.h"
#include "service/kernel/Acknowledged.h"
#include "service/kernel/Folders.h"
#include "service/kernel/Notifier.h"
#include "service/listing/SourceWatch.h"
#include "service/listing/Sync.h"
#include "service/upload/Uploader.h"

namespace tulo {

struct EngineRooms {
  // Opens or creates the replica. Throws DatabaseError or ContentError.
  EngineRooms(const EngineOptions& options, const ExtensionFactory& factory);

  const ExtensionPointer extension;
  Storage storage;
  Folders folders;
  OpenFiles openFiles;
  Notifier notifier;
  SourceWatch source;
  Acknowledged acknowledged;
  DownloadPolicy policy;
  Sync sync;
  const std::shared_ptr<Contents> contents;
  Pins pins;
  LocalFiles files;
  Edits edits;
  std::unique_ptr<Uploader> uploader;
};

}  // namespace tulo
