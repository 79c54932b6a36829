#include "tests/support/IndexBuilder.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

// The only value of a query's first row as text, and its type.
struct Answer {
  std::string text;
  int type = 0;
};

Answer ask(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  sqlite3_stmt* statement = nullptr;
  Answer answer;
  EXPECT_EQ(sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
  EXPECT_EQ(sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr), SQLITE_OK) << sql;
  if (sqlite3_step(statement) == SQLITE_ROW) {
    answer.type = sqlite3_column_type(statement, 0);
    if (const auto* text = sqlite3_column_text(statement, 0)) {
      const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, 0));
      answer.text.assign(reinterpret_cast<const char*>(text), size);
    }
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
  return answer;
}

class IndexBuilderTest : public testing::Test {
 protected:
  TemporaryDirectory directory_;
  const std::string path_ = directory_.file("state.db");
};

TEST_F(IndexBuilderTest, WritesFoldersAndFiles) {
  IndexBuilder(path_)
      .folder("F1", "Docs")
      .folder("F2", "Inner", "F1")
      .file({.ulid = "A", .name = "a.txt", .folder = "F1", .size = 5, .lockedBy = 0});
  EXPECT_EQ(ask(path_, "SELECT count(*) FROM folders").text, "2");
  EXPECT_EQ(ask(path_, "SELECT parent_ulid FROM folders WHERE ulid = 'F2'").text, "F1");
  EXPECT_EQ(ask(path_, "SELECT parent_ulid FROM folders WHERE ulid = 'F1'").type, SQLITE_NULL);
  EXPECT_EQ(ask(path_, "SELECT size FROM items WHERE folder_ulid = 'F1'").text, "5");
  EXPECT_EQ(ask(path_, "SELECT locked_by_user_id FROM items").type, SQLITE_INTEGER);
}

TEST_F(IndexBuilderTest, StoresValuesOfAnyTypeAsTheyAre) {
  IndexBuilder(path_).fileOf({"A", Blob{"x"}, nullptr, "twelve", 1.5, std::int64_t{-1}, "me"});
  EXPECT_EQ(ask(path_, "SELECT name FROM items").type, SQLITE_BLOB);
  EXPECT_EQ(ask(path_, "SELECT size FROM items").type, SQLITE_TEXT);
  EXPECT_EQ(ask(path_, "SELECT mtime_unix FROM items").type, SQLITE_FLOAT);
  EXPECT_EQ(ask(path_, "SELECT version_number FROM items").text, "-1");
}

TEST_F(IndexBuilderTest, OpensWhatIsThere) {
  IndexBuilder(path_).folder("F1", "Docs");
  IndexBuilder(path_).folder("F2", "More");
  EXPECT_EQ(ask(path_, "SELECT count(*) FROM folders").text, "2");
}

TEST_F(IndexBuilderTest, ThrowsWhenAStatementIsWrong) {
  IndexBuilder index(path_);
  EXPECT_THROW(index.execute("nonsense"), std::runtime_error);
}

TEST_F(IndexBuilderTest, DamagesAFileInPlace) {
  writeFile(path_, "abcdef");
  damage(path_, 2, "XY");
  EXPECT_EQ(readFile(path_), "abXYef");
}

TEST(UlidOfTest, HasTheFormAndOrderOfAUlid) {
  EXPECT_EQ(ulidOf(7).size(), 26U);
  EXPECT_EQ(ulidOf(7).substr(20), "000007");
  EXPECT_LT(ulidOf(9), ulidOf(10));
}

}  // namespace
}  // namespace tulo::test
