// A container with an index for the tests of this folder.
#pragma once

#include <gmock/gmock.h>

#include "index/Index.h"
#include "tests/support/Container.h"
#include "tests/support/IndexBuilder.h"
#include "tests/support/LogRecorder.h"

namespace tulo::test {

// One entry on one line: "file U 'name' in P size 1 at 2 version 3 locked by 4 shown as 'x'".
inline std::string described(const IndexEntry& entry) {
  std::string text = (entry.isFolder ? "folder " : "file ") + entry.ulid + " '" + entry.name + "'";
  text += entry.parentUlid ? " in '" + *entry.parentUlid + "'" : " at the top";
  text += " size " + std::to_string(entry.size);
  text += " at " + std::to_string(entry.modified.time_since_epoch().count());
  text += " version " + std::to_string(entry.versionNumber);
  if (entry.lockedByUserId) text += " locked by " + std::to_string(*entry.lockedByUserId);
  return text + " shown as '" + entry.displayName + "'";
}

inline std::vector<std::string> described(const std::vector<IndexEntry>& entries) {
  std::vector<std::string> texts;
  for (const IndexEntry& entry : entries)
    texts.push_back(described(entry));
  return texts;
}

inline std::vector<std::string> displayNames(const std::vector<IndexEntry>& entries) {
  std::vector<std::string> names;
  for (const IndexEntry& entry : entries)
    names.push_back(entry.displayName);
  return names;
}

class IndexFixture : public testing::Test {
 protected:
  // Statements of a schema of the test's own go to this one.
  IndexBuilder builder() const { return IndexBuilder(path()); }
  std::string path() const { return container_.file("state.db"); }
  std::unique_ptr<Index> open() const { return Index::open(Index::appGroup(), "state.db"); }

  Container container_;
  LogRecorder log_;
};

}  // namespace tulo::test
