// Small pictures of image files, kept in the folder "fp-thumbnail" by item and version.
//
// Threads: every member may be called on any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "host/account/Container.h"
#include "host/base/HostLog.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

// The longer side of a thumbnail has at most this many pixels; nothing is made larger than it is,
// but for drawings, which have no size of their own.
inline constexpr int thumbnailSize = 512;

// The picture in a file as PNG: upright as its orientation tag says, with its aspect kept.
// Throws OperationError: unsupported for what is no image, is damaged, or is too large to decode.
std::string renderThumbnail(int file);

class Thumbnails {
 public:
  // Both must outlive the object.
  Thumbnails(const Container& container, const HostLog& log);

  // The path of the picture of this version, if it has been rendered before.
  std::optional<std::string> find(const std::string& ulid, std::int64_t version) const;
  // Renders it and returns its path; pictures of other versions go.
  std::string render(const std::string& ulid, std::int64_t version, int file) const;

  void removeUncollected(std::chrono::seconds age, std::chrono::system_clock::time_point now);

 private:
  FileDescriptor open() const;

  const Container& container_;
  const HostLog& log_;
};

}  // namespace tulo::host
