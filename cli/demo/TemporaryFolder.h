// A new, private folder that goes away, with all that is in it, together with its owner.
#pragma once

#include <filesystem>
#include <string>

namespace tulo::cli::demo {

class TemporaryFolder {
 public:
  // Below $TMPDIR, else /tmp. `prefix` begins its name. Throws std::system_error.
  explicit TemporaryFolder(const std::string& prefix);
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace tulo::cli::demo
