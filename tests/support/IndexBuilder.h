// Builds a host application's index: a real SQLite file, sound or odd.
//
// The columns declare no type, so that every value is stored as it is given; a schema of a test's
// own is made with `execute`.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

struct sqlite3;

namespace tulo::test {

struct Blob {
  std::string bytes;
};

using Value = std::variant<std::nullptr_t, std::int64_t, double, std::string, Blob>;

struct FileRow {
  std::string ulid;
  std::string name;
  std::optional<std::string> folder = std::nullopt;
  std::int64_t size = 0;
  std::int64_t modified = 0;
  std::int64_t version = 0;
  std::optional<std::int64_t> lockedBy = std::nullopt;
};

class IndexBuilder {
 public:
  // Opens the file, or makes it with both tables. Throws std::runtime_error, as every member does.
  explicit IndexBuilder(const std::string& path);

  IndexBuilder& folder(std::string_view ulid, std::string_view name,
                       const std::optional<std::string>& parent = std::nullopt);
  IndexBuilder& file(const FileRow& row);

  // Rows of any values, in the order of the columns: ulid, name, parent_ulid; and ulid, name,
  // folder_ulid, size, mtime_unix, version_number, locked_by_user_id.
  IndexBuilder& folderOf(const std::vector<Value>& values);
  IndexBuilder& fileOf(const std::vector<Value>& values);

  // Any statements; their rows are dropped.
  IndexBuilder& execute(const std::string& sql);

  // A value for the `?` of an INSERT.
  IndexBuilder& insert(const std::string& sql, const std::vector<Value>& values);

 private:
  struct Close {
    void operator()(sqlite3* handle) const noexcept;
  };
  std::unique_ptr<sqlite3, Close> db_;
};

// A standard ULID whose order is that of the number and whose last six characters show it.
std::string ulidOf(std::int64_t number);

// Overwrites the file's bytes from the offset on.
void damage(const std::string& path, std::size_t offset, std::string_view bytes);

}  // namespace tulo::test
