#include "service/contents/ProgramList.h"

#include <gtest/gtest.h>

namespace tulo::test {
namespace {

ProgramNames named(const std::string& executable, std::vector<std::string> arguments = {}) {
  return {executable, executable.substr(0, 15), std::move(arguments)};
}

bool listed(std::string_view lines, const ProgramNames& program) {
  ProgramList list;
  list.add(lines);
  return list.matches(program);
}

TEST(ProgramListTest, AnEmptyListFitsNothing) {
  EXPECT_FALSE(ProgramList().matches(named("cat")));
  EXPECT_FALSE(listed("\n  \n# cat\n", named("cat")));
}

TEST(ProgramListTest, KnowsIndexersAndMakersOfThumbnails) {
  const ProgramList list = ProgramList::standard();
  EXPECT_TRUE(list.matches(named("evince-thumbnailer")));
  EXPECT_TRUE(list.matches(named("updatedb.plocate")));
  EXPECT_FALSE(list.matches(named("cat")));
}

TEST(ProgramListTest, OfSeveralEntriesThatFitTheLastOneCounts) {
  EXPECT_FALSE(listed("reader\n!reader\n", named("reader")));
  EXPECT_TRUE(listed("!reader\nreader\n", named("reader")));
  EXPECT_TRUE(listed("read*\n!writer\n", named("reader")));
  EXPECT_FALSE(listed("read*\n! reader\n", named("reader")));
}

TEST(ProgramListTest, AnArgumentIsComparedWithoutItsFolders) {
  const char* line = "worker \t *.so\r\n";
  EXPECT_TRUE(listed(line, named("worker", {"worker", "/usr/lib/x.so"})));
  EXPECT_FALSE(listed(line, named("worker", {"worker", "/usr/lib.so/x"})));
  EXPECT_FALSE(listed(line, named("worker")));
}

TEST(ProgramListTest, ANameThatTheKernelCutIsCompletedFromTheArguments) {
  const ProgramNames script{
      "python3", "a-very-long-nam", {"python3", "/bin/a-very-long-name-here"}};
  EXPECT_TRUE(listed("a-very-long-name-here", script));
  EXPECT_FALSE(listed("another-long-name-here", script));
}

TEST(ProgramListTest, ANameThatTheKernelCutFitsTheEntryThatBeginsWithIt) {
  const ProgramNames hidden{"", "a-very-long-nam", {}};
  EXPECT_TRUE(listed("a-very-long-name-here", hidden));
  EXPECT_FALSE(listed("a-very-long-number", hidden));
  EXPECT_FALSE(listed("a-very-short", hidden));
}

TEST(ProgramListTest, TheCommandCountsWhereTheFileIsAnother) {
  EXPECT_TRUE(listed("script", {"python3", "script", {}}));
  EXPECT_TRUE(listed("python3", {"python3", "script", {}}));
}

}  // namespace
}  // namespace tulo::test
