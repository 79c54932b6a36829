#include "bench/Container.h"

#include <stdlib.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "platform/linux/Container.h"
#include "platform/linux/LogSink.h"
#include "tests/support/IndexBuilder.h"

namespace tulo::bench {
namespace {

std::string freshDirectory() {
  std::string path = (std::filesystem::temp_directory_path() / "tulo-bench-XXXXXX").string();
  if (mkdtemp(path.data()) == nullptr)
    throw std::system_error(errno, std::generic_category(), "mkdtemp " + path);
  return path;
}

// Spread over the folder, as ULIDs are among names: the multiplier has no factor in common with it.
std::int64_t ulidNumber(int size, int position) {
  return std::int64_t{size} * 1'000'000 + (std::int64_t{position} * 7919) % size;
}

std::string nameOf(int position) {
  char text[40];
  std::snprintf(text, sizeof text, "Quarterly report %06d.pdf", position);
  std::string name = text;
  if (position % 100 == 1) {
    std::snprintf(text, sizeof text, "quarterly Report %06d.pdf", position - 1);
    name = text;
  }
  return name;
}

}  // namespace

Container::Container() : path_(freshDirectory()) {
  platform::setContainerDirectory(path_);
  platform::setLogSink([](const platform::LogRecord&) {});
}

Container::~Container() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string Container::file(std::string_view name) const {
  return std::string(path_).append("/").append(name);
}

void Container::writeIndex(const std::initializer_list<int>& folderSizes) const {
  test::IndexBuilder index(file("state.db"));
  index.execute("BEGIN");
  for (const int size : folderSizes) {
    index.folder(folderOf(size), "Folder of " + std::to_string(size));
    for (int i = 0; i < size; ++i)
      index.file({.ulid = test::ulidOf(ulidNumber(size, i)),
                  .name = nameOf(i),
                  .folder = folderOf(size),
                  .size = i,
                  .modified = 1'700'000'000 + i,
                  .version = 1});
  }
  index.execute("COMMIT");
}

std::string folderOf(int size) {
  return test::ulidOf(900'000'000'000 + size);
}

std::string fileInMiddleOf(int size) {
  return test::ulidOf(ulidNumber(size, size / 2));
}

}  // namespace tulo::bench
