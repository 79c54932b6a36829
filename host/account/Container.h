// The directory that the host shares with the extension, held by one host at a time.
//
// Threads: immutable after open; any thread.
#pragma once

#include <string>
#include <string_view>

#include "host/base/EntryStat.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

class Container {
 public:
  static constexpr const char* socketName = "fp.sock";
  static constexpr const char* uploadName = "fp-upload";
  static constexpr const char* downloadName = "fp-download";
  static constexpr const char* thumbnailName = "fp-thumbnail";
  static constexpr const char* lockName = "host.lock";

  // Makes the directory if it is missing and takes it for this process until the object goes.
  // Throws StartError: it cannot be made, is somebody else's, or another host holds it.
  explicit Container(const std::string& path);

  // Absolute.
  const std::string& path() const { return path_; }
  std::string pathOf(std::string_view name) const { return path_ + "/" + std::string(name); }
  int folder() const { return folder_.get(); }
  const EntryStat& stat() const { return stat_; }

 private:
  void takeLock();

  std::string path_;
  FileDescriptor folder_;
  FileDescriptor lock_;
  EntryStat stat_;
};

}  // namespace tulo::host
