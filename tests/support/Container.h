// The application group's shared container for one test: a temporary directory that is the
// container of this process.
//
// Lifetime: one at a time in a process. When it ends, the process has no container.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {

// Makes the path the container of this process, whether or not there is a directory. Each platform
// has its own implementation.
void setCurrentContainer(const std::string& path);

class Container {
 public:
  Container();
  // One whose socket path ("fp.sock" included) has exactly so many bytes.
  static Container withSocketPathOfLength(std::size_t bytes) { return Container(bytes); }
  ~Container();
  Container(const Container&) = delete;
  Container& operator=(const Container&) = delete;

  const std::string& path() const { return path_; }
  std::string file(std::string_view name) const;
  std::string socketPath() const { return file("fp.sock"); }

  // Takes the directory away: from now on the process has no container.
  void vanish();

 private:
  explicit Container(std::size_t socketPathLength);

  TemporaryDirectory directory_;
  std::string path_;
};

}  // namespace tulo::test
