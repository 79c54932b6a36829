#include "service/listing/Belief.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace tulo::test {
namespace {

class FixedProbe final : public SourceProbe {
 public:
  FixedProbe(std::int64_t count, int error) : count_(count), error_(error) {}

  std::int64_t children(const std::string&) const override {
    if (error_ != 0) throw SourceError(error_, "no");
    return count_;
  }
  bool has(const std::string& item) const override { return children(item) > 0; }

 private:
  const std::int64_t count_;
  const int error_;
};

Belief beliefWith(std::int64_t count, int error = 0) {
  return Belief(std::make_shared<FixedProbe>(count, error));
}

TEST(BeliefTest, AListingIsCompleteWhenTheSourceHasAsMany) {
  EXPECT_EQ(beliefWith(3).errorOfListing("f", 3, std::nullopt), 0);
  EXPECT_EQ(beliefWith(3).errorOfListing("f", 2, std::nullopt), EAGAIN);
  EXPECT_EQ(beliefWith(3).errorOfListing("f", 4, std::nullopt), EAGAIN);
}

TEST(BeliefTest, AListingMadeWhileTheSourceChangedLiesBetweenWhatItHadBeforeAndAfter) {
  EXPECT_EQ(beliefWith(7).errorOfListing("f", 5, 4), 0);
  EXPECT_EQ(beliefWith(4).errorOfListing("f", 5, 7), 0);
  EXPECT_EQ(beliefWith(7).errorOfListing("f", 3, 4), EAGAIN);
  EXPECT_EQ(beliefWith(7).errorOfListing("f", 8, 4), EAGAIN);
}

TEST(BeliefTest, WhatCannotBeReadProvesNothing) {
  EXPECT_EQ(beliefWith(0, EMFILE).errorOfListing("f", 0, std::nullopt), EMFILE);
  EXPECT_EQ(beliefWith(0, EIO).errorOfAbsence("i"), EIO);
  EXPECT_EQ(beliefWith(0, EIO).children("f"), std::nullopt);
}

TEST(BeliefTest, AnItemIsGoneWhenTheSourceDoesNotHaveItEither) {
  EXPECT_EQ(beliefWith(0).errorOfAbsence("i"), 0);
  EXPECT_EQ(beliefWith(1).errorOfAbsence("i"), EAGAIN);
}

TEST(BeliefTest, WithoutAProbeEverythingIsBelieved) {
  EXPECT_EQ(Belief().errorOfListing("f", 17, std::nullopt), 0);
  EXPECT_EQ(Belief().errorOfAbsence("i"), 0);
  EXPECT_EQ(Belief().children("f"), std::nullopt);
}

}  // namespace
}  // namespace tulo::test
