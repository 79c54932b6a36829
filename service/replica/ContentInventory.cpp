#include "service/replica/ContentInventory.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "service/errors/ContentError.h"

namespace tulo::inventory {

namespace {

// Every entry below the folder.
template <typename Visitor>
void walk(const std::string& directory, const Visitor& visit) {
  std::error_code error;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory, error))
    visit(entry);
  if (!error) return;
  throw ContentError(error.value(),
                     "cannot look through " + directory + ": " + std::strerror(error.value()));
}

ContentId numberOf(const std::filesystem::path& path) {
  return ContentId(std::strtoull(path.filename().c_str(), nullptr, 10));
}

}  // namespace

std::vector<NamedContents> named(const ContentStore& store) {
  std::vector<NamedContents> result;
  walk(store.directory(), [&](const std::filesystem::directory_entry& entry) {
    const std::optional<std::string> name = ContentStore::nameOf(entry.path());
    if (name) result.push_back({numberOf(entry.path()), entry.path(), *name});
  });
  return result;
}

ContentId highestNumber(const ContentStore& store) {
  ContentId highest;
  walk(store.directory(), [&](const std::filesystem::directory_entry& entry) {
    std::error_code ignored;
    if (entry.is_regular_file(ignored)) highest = std::max(highest, numberOf(entry.path()));
  });
  return highest;
}

}  // namespace tulo::inventory
