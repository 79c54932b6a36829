#include "sqlite/Statement.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include "sqlite/Connection.h"

namespace tulo::sqlite {
namespace {

class StatementTest : public testing::Test {
 protected:
  // The type under which SQLite keeps what is bound.
  template <typename Value>
  std::string typeOf(const Value& value) {
    Statement statement = connection_.prepare("SELECT typeof(?)");
    EXPECT_TRUE(statement.bind(value).step());
    return std::string(statement.text(0));
  }

  // The same bytes, after a way through a table.
  template <typename Value>
  std::string kept(const Value& value) {
    connection_.execute("CREATE TABLE IF NOT EXISTS kept(value); DELETE FROM kept");
    connection_.prepare("INSERT INTO kept VALUES(?)").bind(value).run();
    Statement statement = connection_.prepare("SELECT value FROM kept");
    EXPECT_TRUE(statement.step());
    return std::string(statement.text(0));
  }

  Connection connection_{":memory:", Connection::Mode::create};
};

TEST_F(StatementTest, BytesAreABlobAndTextIsText) {
  EXPECT_EQ(typeOf(std::string_view("a")), "blob");
  EXPECT_EQ(typeOf(std::string("a")), "blob");
  EXPECT_EQ(typeOf("a"), "blob");
  EXPECT_EQ(typeOf(Text{"a"}), "text");
}

TEST_F(StatementTest, WhatIsEmptyIsNotNull) {
  EXPECT_EQ(typeOf(std::string_view()), "blob");
  EXPECT_EQ(typeOf(Text{}), "text");
}

TEST_F(StatementTest, WhatIsLeftOutIsNull) {
  EXPECT_EQ(typeOf(nullptr), "null");
  EXPECT_EQ(typeOf(std::optional<std::int64_t>()), "null");
  EXPECT_EQ(typeOf(std::optional<Text>()), "null");
  EXPECT_EQ(typeOf(std::optional(Text{"a"})), "text");
}

TEST_F(StatementTest, TextThatIsNotUtf8KeepsItsBytes) {
  EXPECT_EQ(kept(Text{"caf\xE9"}), "caf\xE9");
  EXPECT_EQ(kept(Text{std::string_view("a\0b", 3)}), std::string_view("a\0b", 3));
}

TEST_F(StatementTest, TextIsFoundWhereABlobOfTheSameBytesIsNot) {
  connection_.execute("CREATE TABLE names(name TEXT); INSERT INTO names VALUES('a')");
  EXPECT_TRUE(connection_.prepare("SELECT 1 FROM names WHERE name = ?").bind(Text{"a"}).step());
  EXPECT_FALSE(connection_.prepare("SELECT 1 FROM names WHERE name = ?").bind("a").step());
}

TEST_F(StatementTest, NumbersKeepAll64Bits) {
  Statement statement = connection_.prepare("SELECT ?, ?");
  ASSERT_TRUE(statement.bind(std::int64_t{INT64_MIN}, std::uint64_t{UINT64_MAX}).step());
  EXPECT_EQ(statement.integer(0), INT64_MIN);
  EXPECT_EQ(static_cast<std::uint64_t>(statement.integer(1)), UINT64_MAX);
}

TEST_F(StatementTest, BindingStartsAnew) {
  Statement statement = connection_.prepare("SELECT ?");
  ASSERT_TRUE(statement.bind(1).step());
  ASSERT_TRUE(statement.bind(2).step());
  EXPECT_EQ(statement.integer(0), 2);
  EXPECT_FALSE(statement.step());
}

TEST_F(StatementTest, TheRestIsBoundBehindWhatIsThere) {
  Statement statement = connection_.prepare("SELECT ?, ?");
  statement.bind(1);
  statement.bindFrom(1, 2);
  ASSERT_TRUE(statement.step());
  EXPECT_EQ(statement.integer(0), 1);
  EXPECT_EQ(statement.integer(1), 2);
}

TEST_F(StatementTest, AFailedStepLeavesTheStatementUsable) {
  connection_.execute("CREATE TABLE numbers(n UNIQUE)");
  Statement statement = connection_.prepare("INSERT INTO numbers VALUES(?)");
  statement.bind(1).run();
  EXPECT_THROW(statement.bind(1).run(), DatabaseError);
  statement.bind(2).run();
  EXPECT_EQ(connection_.integer("SELECT count(*) FROM numbers"), 2);
}

TEST_F(StatementTest, AUseEndsTheReading) {
  connection_.execute("CREATE TABLE t(x); INSERT INTO t VALUES(1), (2)");
  Statement& statement = connection_.cached("SELECT x FROM t");
  {
    const StatementUse use(statement);
    ASSERT_TRUE(statement.step());
  }
  // A table that is still being read cannot go.
  EXPECT_NO_THROW(connection_.execute("DROP TABLE t"));
}

TEST_F(StatementTest, WhatIsNoStatementIsRefused) {
  EXPECT_THROW(connection_.prepare("SELEKT 1"), DatabaseError);
  EXPECT_THROW(connection_.prepare("SELECT 1").bind(1), DatabaseError) << "no such parameter";
}

}  // namespace
}  // namespace tulo::sqlite
