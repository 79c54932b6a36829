// A shared container for the life of a benchmark, and indexes in it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tulo::bench {

// A temporary directory that is the container of this process; nothing is logged meanwhile.
class Container {
 public:
  Container();
  ~Container();
  Container(const Container&) = delete;
  Container& operator=(const Container&) = delete;

  std::string file(std::string_view name) const;

  // Writes state.db: folders "FOLDER-n" of n files each, one name in a hundred a clash.
  void writeIndex(const std::initializer_list<int>& folderSizes) const;

 private:
  std::string path_;
};

// The ULID of a folder of so many files, and that of the file in its middle.
std::string folderOf(int size);
std::string fileInMiddleOf(int size);

}  // namespace tulo::bench
