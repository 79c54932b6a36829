#include "service/errors/Reaction.h"

#include <gtest/gtest.h>

#include "service/edits/LocalNames.h"
#include "service/errors/Errno.h"

namespace tulo::test {
namespace {

using platform::cocoaError;
using platform::fileProviderError;
using platform::NSError;
using platform::NSFileProviderErrorCode;

struct Row {
  NSError error;
  Reaction reaction;
  bool provesNotDone;
};

TEST(ReactionTest, EachErrorHasItsReaction) {
  const Row rows[] = {
      {fileProviderError(NSFileProviderErrorCode::serverUnreachable), Reaction::retryUnreachable,
       false},
      {fileProviderError(NSFileProviderErrorCode::insufficientQuota), Reaction::retryShown, true},
      {fileProviderError(NSFileProviderErrorCode::notAuthenticated), Reaction::pause, true},
      {fileProviderError(NSFileProviderErrorCode::noSuchItem), Reaction::lookAgain, true},
      {fileProviderError(NSFileProviderErrorCode::syncAnchorExpired), Reaction::retry, true},
      {fileProviderError(NSFileProviderErrorCode::filenameCollision), Reaction::refuse, true},
      {fileProviderError(NSFileProviderErrorCode::cannotSynchronize), Reaction::uncertain, false},
      {cocoaError(platform::NSFileWriteInvalidFileNameError), Reaction::refuse, true},
      {cocoaError(platform::NSFileWriteOutOfSpaceError), Reaction::retryShown, true},
      {cocoaError(4), Reaction::uncertain, false},
      {handoverError(28), Reaction::retryHandover, false},
      {NSError{"somebody else's", -1004, {}}, Reaction::uncertain, false},
      {NSError{std::string(platform::NSFileProviderErrorDomain), -9999, {}}, Reaction::uncertain,
       false},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(reactionTo(row.error), row.reaction) << row.error.domain << ' ' << row.error.code;
    EXPECT_EQ(provesNotDone(row.error), row.provesNotDone)
        << row.error.domain << ' ' << row.error.code;
  }
}

TEST(ReactionTest, TheUserIsToldWhatToDoWhereSomethingCanBeDone) {
  EXPECT_NE(adviceFor(Reaction::refuse, true).find("tulo retry"), std::string_view::npos);
  EXPECT_FALSE(adviceFor(Reaction::retryShown, false).empty());
  EXPECT_FALSE(adviceFor(Reaction::pause, false).empty());
  EXPECT_TRUE(adviceFor(Reaction::retry, false).empty());
  EXPECT_TRUE(adviceFor(Reaction::retryUnreachable, false).empty());
}

TEST(BackOffTest, PausesDoubleUpToTheCap) {
  constexpr std::uint64_t kLeast = 0;
  EXPECT_EQ(backOff(1, Reaction::retry, kLeast).count(), 250);
  EXPECT_EQ(backOff(2, Reaction::retry, kLeast).count(), 500);
  EXPECT_EQ(backOff(3, Reaction::retry, kLeast).count(), 1000);
  EXPECT_EQ(backOff(8, Reaction::retry, kLeast).count(), 30'000);
  EXPECT_EQ(backOff(1000, Reaction::retry, kLeast).count(), 30'000);
  EXPECT_EQ(backOff(1000, Reaction::retryShown, kLeast).count(), 150'000);
  EXPECT_EQ(backOff(0, Reaction::retry, kLeast).count(), 250);
  EXPECT_EQ(backOff(-1, Reaction::retry, kLeast).count(), 250);
}

TEST(BackOffTest, PausesAreSpreadBetweenHalfAndTheWhole) {
  std::int64_t least = 60'000;
  std::int64_t most = 0;
  for (std::uint64_t random = 0; random < 60'002; ++random) {
    const std::int64_t pause = backOff(20, Reaction::retryUnreachable, random).count();
    least = std::min(least, pause);
    most = std::max(most, pause);
  }
  EXPECT_EQ(least, 30'000);
  EXPECT_EQ(most, 60'000);
}

TEST(BackOffTest, AnyRandomNumberWillDo) {
  const std::int64_t pause = backOff(3, Reaction::retry, ~std::uint64_t{0}).count();
  EXPECT_GE(pause, 1000);
  EXPECT_LE(pause, 2000);
}

TEST(LocalNamesTest, WhatProgramsWriteForAMomentStaysHere) {
  const LocalNames names;
  for (const char* name : {"a.txt~",
                           "film.mkv.part",
                           "x.crdownload",
                           ".a.txt.swp",
                           ".a.txt.swx",
                           "~$letter.docx",
                           ".~lock.sheet.ods#",
                           "a.kate-swp",
                           ".DS_Store",
                           "Thumbs.db",
                           "desktop.ini",
                           ".fuse_hidden0001",
                           ".goutputstream-AB12",
                           ".nfs00000001",
                           "lu1234.tmp",
                           "4913",
                           ".#a.txt",
                           "#a.txt#",
                           ".Trash-1000",
                           ".directory"}) {
    EXPECT_TRUE(names.matches(name)) << name;
  }
}

TEST(LocalNamesTest, WhatTheUserNamesGoesUp) {
  const LocalNames names;
  for (const char* name : {"a.txt", "part", "a.partial", "swp", ".profile", ".swp.txt", "lu.txt",
                           "49130", "a#b", "~a", "Trash-1000", "a.tmp", "$", "", "grün.odt"}) {
    EXPECT_FALSE(names.matches(name)) << name;
  }
}

TEST(LocalNamesTest, ThePatternsAreThoseGiven) {
  const LocalNames names({"*.tmp", "?"});
  EXPECT_TRUE(names.matches("a.tmp"));
  EXPECT_TRUE(names.matches("x"));
  EXPECT_FALSE(names.matches("xy"));
  EXPECT_FALSE(names.matches("a~"));
  EXPECT_FALSE(LocalNames(std::vector<std::string>()).matches("a~"));
}

}  // namespace
}  // namespace tulo::test
