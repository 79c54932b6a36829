// A fresh directory under TMPDIR, removed with all that is in it at the end of its life.
#pragma once

#include <string>
#include <string_view>

namespace tulo::test {

class TemporaryDirectory {
 public:
  // Throws std::system_error when no directory can be made.
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return path_; }
  std::string file(std::string_view name) const;

 private:
  std::string path_;
};

void writeFile(const std::string& path, std::string_view bytes);

// The bytes of the file; adds a test failure and gives an empty string when it cannot be read.
std::string readFile(const std::string& path);

}  // namespace tulo::test
