#include "tests/support/Container.h"

#include <filesystem>
#include <stdexcept>

namespace tulo::test {
namespace {

constexpr std::string_view socketName = "/fp.sock";

// Nested directories below `base`, so that the path has the wanted length. A component is kept well
// below the 255 bytes that a file system allows.
std::string padded(const std::string& base, std::size_t length) {
  if (length < base.size() + 2) throw std::invalid_argument("container path too short: " + base);
  return base + "/" + std::string(length - base.size() - 1, 'c');
}

}  // namespace

Container::Container() : path_(directory_.file("group")) {
  std::filesystem::create_directory(path_);
  setCurrentContainer(path_);
}

Container::Container(std::size_t socketPathLength)
    : path_(padded(directory_.path(), socketPathLength - socketName.size())) {
  std::filesystem::create_directory(path_);
  setCurrentContainer(path_);
}

Container::~Container() {
  setCurrentContainer(directory_.file("none"));
}

std::string Container::file(std::string_view name) const {
  return std::string(path_).append("/").append(name);
}

void Container::vanish() {
  std::filesystem::remove_all(path_);
}

}  // namespace tulo::test
