// The system's file manager, as far as the extension calls it.
//
// Threads: every function may be called on any thread.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/URL.h"

namespace tulo::platform {

// Bytes of a file or of a blob that the system stores for the extension.
using Data = std::string;

// A failed file operation. what() names the file and the reason.
class FileManagerError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class FileManager {
 public:
  FileManager() = delete;

  // The directory that the application group shares, or nothing when there is none.
  static std::optional<URL> containerURL(std::string_view applicationGroup);

  // Whether anything (a file, a directory, a socket) exists at the path, following links.
  // A path with an embedded NUL names nothing.
  static bool fileExists(const std::string& path);

  // Creates the directory and the ones above it; an existing directory is success.
  // Throws FileManagerError.
  static void createDirectory(const URL& directory);

  // Removes a file, or a directory with all that is in it. Throws FileManagerError, also when
  // nothing is there.
  static void removeItem(const URL& item);

  // Copies a file, or a directory tree whole (symbolic links as links). The destination must not
  // exist. On failure nothing is left under the destination's name. Throws FileManagerError.
  static void copyItem(const URL& source, const URL& destination);

  // The whole regular file, or nothing when it cannot be read.
  static std::optional<Data> contents(const URL& file);
};

}  // namespace tulo::platform
