// What an engine is made with.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/FileProvider.h"
#include "service/base/Time.h"
#include "service/edits/LocalNames.h"
#include "service/listing/SourceProbe.h"
#include "service/listing/SourceWatch.h"
#include "service/replica/CacheRoom.h"

namespace tulo {

using ExtensionFactory = std::function<std::shared_ptr<platform::NSFileProviderReplicatedExtension>(
    platform::DomainPointer)>;

struct EngineOptions {
  std::string domain;
  std::string stateDirectory;  // must exist
  SourceFiles source;
  // Looks into the source beside the provider; null: what the provider says is believed.
  std::shared_ptr<const SourceProbe> probe;
  CacheLimits limits;
  // The user's list of programs that may not cause a download; empty: only the built-in one.
  std::string noDownloadList;
  // Changes made here go up; without, nothing can be changed.
  bool readWrite = false;
  std::vector<std::string> localNames = LocalNames::defaults();
  // After the last change of an item before it goes up.
  milliseconds quiet{1000};
  // What waits are measured by, and what people are shown; without the second, the first is both.
  WallClock clock = steadyClock;
  WallClock wallClock = nullptr;
  // Whether what was kept here may still go to the host that is there.
  std::function<bool()> sameAccount = [] { return true; };
  // Called on a program's thread that is about to wait for the disk.
  std::function<void()> beforeWaiting = [] {};
};

}  // namespace tulo
