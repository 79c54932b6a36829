// The hold of one request on one staged copy, a file or a tree.
//
// Threads: one at a time. Errors: OperationError.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/account/Claims.h"
#include "host/base/EntryStat.h"
#include "host/base/HostLog.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

class StagedCopy {
 public:
  // Of the entry of that folder which bears the claim's name. `log` must outlive the copy.
  StagedCopy(FileDescriptor folder, Claims::Claim claim, const HostLog& log);
  // Removes what is left of it.
  ~StagedCopy();
  StagedCopy(const StagedCopy&) = delete;
  StagedCopy& operator=(const StagedCopy&) = delete;

  int folder() const { return folder_.get(); }
  const std::string& name() const { return claim_.name(); }
  bool isThere() const { return stat_.has_value(); }
  bool isFolder() const { return stat_ && stat_->isFolder; }
  // Neither a file nor a folder: nothing that can be taken over.
  bool isOther() const { return stat_ && stat_->isOther(); }
  // When it was begun, as far as the file system knows.
  DiskTime begun() const;
  // The bytes in all of its files.
  std::int64_t size() const { return size_; }

 private:
  const HostLog& log_;
  Claims::Claim claim_;
  FileDescriptor folder_;
  std::optional<EntryStat> stat_;
  std::int64_t size_ = 0;
};

}  // namespace tulo::host
