#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace tulo::test {
namespace {

// The address of a Unix-domain socket has room for about a hundred bytes, and the tests put sockets
// into these directories: a long TMPDIR gives way to the short default.
std::string base() {
  constexpr std::size_t longest = 48;
  const char* configured = getenv("TMPDIR");
  const std::string path = configured != nullptr ? configured : "";
  return path.empty() || path.size() > longest ? "/tmp" : path;
}

}  // namespace

TemporaryDirectory::TemporaryDirectory() : path_(base() + "/tulo-XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr)
    throw std::system_error(errno, std::generic_category(), "mkdtemp " + path_);
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TemporaryDirectory::file(std::string_view name) const {
  return std::string(path_).append("/").append(name);
}

void writeFile(const std::string& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  EXPECT_TRUE(file.good()) << "writing " << path;
}

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << "reading " << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace tulo::test
