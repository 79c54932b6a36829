// A reference host on a folder and a container of its own, and a look at both from outside.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/Host.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {

using nlohmann::json;

// A row of the index, file or folder.
struct IndexRow {
  std::string ulid;
  std::string name;
  std::optional<std::string> parent;
  bool isFolder = false;
  std::int64_t size = 0;
  std::int64_t modified = 0;
  std::int64_t version = 0;
  std::optional<std::int64_t> lockedBy;
};

// A connection to an index as the extension opens it.
class IndexReader {
 public:
  explicit IndexReader(const std::string& path);

  bool isOpen() const { return db_ != nullptr; }
  // Text of the first column of each row; adds a test failure for a statement that fails.
  std::vector<std::string> column(const std::string& sql) const;
  // All rows by the path that their names make; of several with one path, any.
  std::map<std::string, IndexRow> rows() const;

 private:
  struct Close {
    void operator()(sqlite3* db) const { sqlite3_close(db); }
  };
  std::unique_ptr<sqlite3, Close> db_;
};

class HostTest : public testing::Test {
 protected:
  HostTest();

  std::string inRoot(std::string_view path) const { return root_ + "/" + std::string(path); }
  std::string inContainer(std::string_view path) const {
    return container_ + "/" + std::string(path);
  }
  void makeFolder(std::string_view path) const;
  void makeFile(std::string_view path, std::string_view bytes) const;

  host::HostOptions options() const;
  void startHost() { startHost(options()); }
  void startHost(host::HostOptions options);
  void stopHost() { host_.reset(); }
  host::Host& runningHost() { return *host_; }

  // The reply to a request, with the primary account unless it names another.
  json ask(json request) const;
  // The bytes of the reply to raw bytes.
  std::string exchange(std::string_view bytes) const;
  // The path of new contents in the staging folder.
  std::string stage(std::string_view bytes);
  std::string stagedName() { return "STAGED-" + std::to_string(++staged_); }
  std::vector<std::string> stagedCopies() const { return entriesOf(inContainer("fp-upload")); }
  static std::vector<std::string> entriesOf(const std::string& folder);

  std::map<std::string, IndexRow> rows(const std::string& database = "state.db") const;
  std::vector<std::string> paths(const std::string& database = "state.db") const;
  // The row of a path; adds a test failure and gives an empty one when there is none.
  IndexRow row(const std::string& path) const;
  bool hasRow(const std::string& path) const { return rows().contains(path); }

  json create(const std::string& name, std::string_view bytes, const std::string& parent = {});
  json createFolder(const std::string& name, const std::string& parent = {});

  TemporaryDirectory directory_;
  std::string root_;
  std::string container_;

 private:
  std::unique_ptr<host::Host> host_;
  int staged_ = 0;
};

// What a failed reply says.
json failure(std::string_view kind, std::string_view message);
std::string kindOf(const json& reply);

}  // namespace tulo::test
