// A file URL.
#pragma once

#include <string>
#include <string_view>

namespace tulo::platform {

// A file-system path taken as it stands: never normalised, never checked against the disk.
class URL {
 public:
  explicit URL(std::string path) : path_(std::move(path)) {}

  const std::string& path() const { return path_; }

  // The path with one more component. Nothing in `component` is interpreted.
  URL appendingPathComponent(std::string_view component) const;

  // "file://" and the percent-encoded path. A relative path is resolved against the process's
  // working directory, since a file URL has no relative form.
  std::string absoluteString() const;

  bool operator==(const URL&) const = default;

 private:
  std::string path_;
};

}  // namespace tulo::platform
