// What of the platform's implementation shows only in the system's own terms.
#import "tests/apple/system/SystemPlayer.h"

#include <gmock/gmock.h>

#include <os/log.h>

#include "index/Index.h"
#include "platform/Bundle.h"
#include "platform/Deployment.h"
#include "platform/Dispatch.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/UUID.h"
#include "platform/apple/Values.h"
#include "tests/apple/sdk/StandIns.h"
#include "tests/support/Gate.h"
#include "tests/support/TemporaryDirectory.h"

// Text with halves of surrogate pairs, of which GNUstep makes no string.
@interface HalfPairs : NSString
@end

@implementation HalfPairs

- (NSUInteger)length {
  return 4;
}

- (unichar)characterAtIndex:(NSUInteger)index {
  constexpr unichar units[] = {'a', 0xD800, 'b', 0xDC00};
  return units[index];
}

@end

namespace tulo::test {
namespace {

class SystemLogTest : public testing::Test {
 protected:
  SystemLogTest() {
    sdk::setLogHandler([this](const sdk::LogCall &call) { calls_.push_back(call); });
  }
  ~SystemLogTest() override { sdk::setLogHandler(nullptr); }

  std::vector<sdk::LogCall> calls_;
};

TEST_F(SystemLogTest, TakesSubsystemCategoryAndLevel) {
  const platform::Log log("app.example", "Area");
  log.info("plain");
  log.error("plain");
  ASSERT_EQ(calls_.size(), 2U);
  EXPECT_EQ(calls_[0].subsystem, "app.example");
  EXPECT_EQ(calls_[0].category, "Area");
  EXPECT_EQ(calls_[0].type, OS_LOG_TYPE_INFO);
  EXPECT_EQ(calls_[1].type, OS_LOG_TYPE_ERROR);
}

// The system hides every argument that is not said to be public.
TEST_F(SystemLogTest, EveryArgumentIsPublic) {
  const platform::Log log("app.example", "Area");
  log.info("%{public}@ of %d: %{public}s", {"\u00E4 %@", 3, "c"});
  ASSERT_EQ(calls_.size(), 1U);
  EXPECT_THAT(calls_[0].arguments, testing::ElementsAre("\u00E4 %@ of 3: c"));
}

TEST(SystemQueueTest, HasTheClassOfItsWork) {
  for (const auto &[quality, wanted] :
       {std::pair{platform::QualityOfService::userInitiated, QOS_CLASS_USER_INITIATED},
        std::pair{platform::QualityOfService::utility, QOS_CLASS_UTILITY}}) {
    Gate done;
    qos_class_t seen = QOS_CLASS_UNSPECIFIED;
    platform::DispatchQueue::global(quality).async([&] {
      seen = qos_class_self();
      done.open();
    });
    ASSERT_TRUE(done.wait());
    EXPECT_EQ(seen, static_cast<qos_class_t>(wanted));
  }
  EXPECT_TRUE(sdk::waitForIdleQueues());
}

TEST(SystemContainerTest, IsThatOfTheApplicationGroup) {
  const apple::AutoreleasePool pool;
  const TemporaryDirectory directory;
  sdk::setGroupContainer(directory.path());
  EXPECT_EQ(platform::FileManager::containerURL(Index::appGroup()),
            platform::URL(directory.path()));
  EXPECT_EQ(sdk::lastRequestedGroup(), Index::appGroup());
  sdk::setGroupContainer(std::nullopt);
  EXPECT_EQ(platform::FileManager::containerURL("group"), std::nullopt);
}

// The bundle's property lists are made from the same two settings.
TEST(SystemContainerTest, TheGroupIsThatOfTheBundle) {
  EXPECT_EQ(Index::appGroup(), std::string(deployment::teamIdentifier) + "." +
                                   std::string(deployment::hostBundleIdentifier));
}

TEST(SystemBundleTest, GivesStringsOnly) {
  const apple::AutoreleasePool pool;
  sdk::setMainBundleValue("TuloTest", @"1.4.2");
  EXPECT_EQ(platform::mainBundleInfoString("TuloTest"), "1.4.2");
  sdk::setMainBundleValue("TuloTest", @"");
  EXPECT_EQ(platform::mainBundleInfoString("TuloTest"), "");
  sdk::setMainBundleValue("TuloTest", [NSNumber numberWithInt:7]);
  EXPECT_EQ(platform::mainBundleInfoString("TuloTest"), std::nullopt);
  sdk::setMainBundleValue("TuloTest", nil);
  EXPECT_EQ(platform::mainBundleInfoString("TuloTest"), std::nullopt);
}

TEST(SystemTextTest, IsCarriedBothWaysAsItIs) {
  const apple::AutoreleasePool pool;
  for (const std::string &text :
       {std::string(), std::string("a"), std::string("\u00E4"), std::string("a\u0308"),
        std::string("\u65E5\u672C\u8A9E"), std::string("\U0001F469\u200D\U0001F4BB \U0010FFFF"),
        std::string("a\0b", 3)}) {
    EXPECT_EQ(apple::toString(apple::toNSString(text)), text);
  }
}

TEST(SystemTextTest, WhatIsNoTextBecomesTheReplacement) {
  const apple::AutoreleasePool pool;
  EXPECT_EQ(apple::toString(apple::toNSString("a\xFF\xE2\x82z")), "a\uFFFD\uFFFD\uFFFDz");
  EXPECT_EQ(apple::toString([[[HalfPairs alloc] init] autorelease]), "a\uFFFDb\uFFFD");
  EXPECT_EQ(apple::toString(nil), "");
}

TEST(SystemURLTest, KeepsThePathAsItIsSpelled) {
  const apple::AutoreleasePool pool;
  for (const std::string path : {"/a b/%20?#", "/A\u0308/\u00C4", "/a"}) {
    EXPECT_EQ(apple::toURL(apple::toNSURL(platform::URL(path)))->path(), path);
  }
  EXPECT_EQ(apple::toURL(nil), std::nullopt);
  EXPECT_EQ(apple::toNSURL(std::optional<platform::URL>()), nil);
}

TEST(SystemURLTest, APathThatNamesNothingIsNoPlace) {
  const apple::AutoreleasePool pool;
  for (const std::string &path : {std::string(), std::string("/a\0b", 4)}) {
    NSURL *url = apple::toNSURL(platform::URL(path));
    EXPECT_NE(url, nil);
    EXPECT_EQ([[url path] length], 0U);
  }
}

TEST(SystemErrorValueTest, AnAbsentUserInfoIsNotAnEmptyOne) {
  const apple::AutoreleasePool pool;
  EXPECT_EQ(described(apple::toNSError(platform::cocoaError(640))), "NSCocoaErrorDomain 640");
  EXPECT_EQ(described(apple::toNSError(platform::NSError{"other", -1, {{{"key", "value"}}}})),
            "other -1 with 1 entries");
}

TEST(SystemUUIDTest, Has36CharactersInUpperCase) {
  EXPECT_THAT(platform::randomUUIDString(),
              testing::MatchesRegex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"));
}

}  // namespace
}  // namespace tulo::test
