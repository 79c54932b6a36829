#include "service/kernel/Acknowledged.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace tulo::test {
namespace {

using Names = std::unordered_set<std::string>;

TEST(AcknowledgedTest, OnlyWhatComesAfterTheBeginningIsNewer) {
  Acknowledged acknowledged;
  const Acknowledged::Watch first(acknowledged);
  acknowledged.note("i:1");
  const Acknowledged::Watch second(acknowledged);
  acknowledged.note("i:2");
  EXPECT_EQ(first.newer(), (Names{"i:1", "i:2"}));
  EXPECT_EQ(second.newer(), Names{"i:2"});
}

TEST(AcknowledgedTest, TheLastTimeCounts) {
  Acknowledged acknowledged;
  const Acknowledged::Watch first(acknowledged);
  acknowledged.note("i:1");
  const Acknowledged::Watch second(acknowledged);
  EXPECT_TRUE(second.newer().empty());
  acknowledged.note("i:1");
  EXPECT_EQ(second.newer(), Names{"i:1"});
}

TEST(AcknowledgedTest, WhatCameWhileNobodyWatchedIsNotNewer) {
  Acknowledged acknowledged;
  acknowledged.note("i:1");
  const Acknowledged::Watch watch(acknowledged);
  EXPECT_TRUE(watch.newer().empty());
}

TEST(AcknowledgedTest, AnItemWithoutIdentifierIsNoItem) {
  Acknowledged acknowledged;
  const Acknowledged::Watch watch(acknowledged);
  acknowledged.note("");
  EXPECT_TRUE(watch.newer().empty());
}

TEST(AcknowledgedTest, AnEndingWatchTakesNothingFromTheOthers) {
  Acknowledged acknowledged;
  auto old = std::make_unique<Acknowledged::Watch>(acknowledged);
  acknowledged.note("before");
  const Acknowledged::Watch watch(acknowledged);
  constexpr int kMany = 2000;  // so many that what nobody needs is looked through
  for (int i = 0; i < kMany; ++i)
    acknowledged.note("i:" + std::to_string(i));
  old.reset();
  EXPECT_EQ(watch.newer().size(), static_cast<std::size_t>(kMany));
  EXPECT_FALSE(watch.newer().contains("before"));
}

}  // namespace
}  // namespace tulo::test
