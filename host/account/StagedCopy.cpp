#include "host/account/StagedCopy.h"

#include <utility>

#include "host/base/Files.h"
#include "host/base/HostError.h"

namespace tulo::host {

namespace {

std::int64_t sizeOfTree(int folder, const std::string& name) {
  const auto stat = statEntry(folder, name);
  if (!stat || stat->isOther()) return 0;
  if (stat->isFile) return stat->size;
  std::int64_t total = 0;
  if (const FileDescriptor sub = openFolder(folder, name)) {
    forEachEntry(sub.get(),
                 [&](const std::string& child) { total += sizeOfTree(sub.get(), child); });
  }
  return total;
}

}  // namespace

StagedCopy::StagedCopy(FileDescriptor folder, Claims::Claim claim, const HostLog& log)
    : log_(log),
      claim_(std::move(claim)),
      folder_(std::move(folder)),
      stat_(statEntry(folder_.get(), name())),
      size_(sizeOfTree(folder_.get(), name())) {}

DiskTime StagedCopy::begun() const {
  if (!stat_) return std::chrono::system_clock::now();
  return stat_->born == DiskTime() ? stat_->changed : stat_->born;
}

StagedCopy::~StagedCopy() {
  try {
    removeTree(folder_.get(), name());
  } catch (const OperationError& error) {
    log_.error("cannot remove the staged copy " + inQuotes(name()) + ": " + error.what());
  }
}

}  // namespace tulo::host
