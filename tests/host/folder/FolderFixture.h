// A folder with its index and what keeps the one true to the other, without an account around them.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

#include "host/base/HostLog.h"
#include "host/folder/FolderIndex.h"
#include "host/folder/Places.h"
#include "host/folder/ServedFolder.h"
#include "host/folder/Tree.h"
#include "host/index/Ulid.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {

class FolderTest : public testing::Test {
 protected:
  std::string inRoot(const std::string& path) const { return root_ + "/" + path; }
  void makeFolder(const std::string& path) const {
    std::filesystem::create_directories(inRoot(path));
  }
  void makeFile(const std::string& path, const std::string& bytes = "x") const {
    test::writeFile(inRoot(path), bytes);
  }
  // The node at a path on the disk, as the index knows it.
  std::optional<Node> node(const std::string& path) {
    std::optional<Node> found;
    std::string parent;
    for (const auto& name : std::filesystem::path(path)) {
      found = index_.nodes().child(parent, name.string());
      if (!found) return std::nullopt;
      parent = found->ulid;
    }
    return found;
  }
  std::string ulid(const std::string& path) {
    const auto found = node(path);
    return found ? found->ulid : "no " + path;
  }
  Place place(const std::string& path) {
    const std::string parent = path.empty() ? std::string() : ulid(path);
    return {parent, places_.open(parent)};
  }

  const test::TemporaryDirectory directory_;
  const std::string root_ = [this] {
    const std::string path = directory_.file("root");
    std::filesystem::create_directory(path);
    return path;
  }();
  const HostLog log_{false};
  UlidSource ulids_;
  ServedFolder folder_{root_, EntryStat(), log_};
  FolderIndex index_{directory_.file("state.db")};
  Places places_{folder_, index_.nodes()};
  Tree tree_{folder_, index_, places_, ulids_};
};

}  // namespace tulo::host
