#include "cli/demo/TemporaryFolder.h"

#include <stdlib.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace tulo::cli::demo {
namespace {

std::filesystem::path madeFolder(const std::string& prefix) {
  const char* parent = std::getenv("TMPDIR");
  std::string path =
      std::string(parent != nullptr && *parent == '/' ? parent : "/tmp") + "/" + prefix + "-XXXXXX";
  if (mkdtemp(path.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), "cannot make a folder " + path);
  }
  return std::filesystem::canonical(path);
}

}  // namespace

TemporaryFolder::TemporaryFolder(const std::string& prefix) : path_(madeFolder(prefix)) {}

TemporaryFolder::~TemporaryFolder() {
  std::error_code error;
  std::filesystem::remove_all(path_, error);
  if (error) {
    std::fprintf(stderr, "tulo: cannot remove %s: %s\n", path_.c_str(), error.message().c_str());
  }
}

}  // namespace tulo::cli::demo
