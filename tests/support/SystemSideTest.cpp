#include "tests/support/SystemSide.h"

#include <gmock/gmock.h>

#include "platform/Deployment.h"
#include "platform/Log.h"
#include "tests/support/Container.h"
#include "tests/support/LogRecorder.h"

namespace tulo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(CallRecorderTest, RecordsArgumentsAndThread) {
  const CallRecorder<int, std::string> recorder;
  std::thread thread([callback = recorder.callback()] { callback(1, "one"); });
  const auto worker = thread.get_id();
  ASSERT_TRUE(recorder.waitFor(1));
  thread.join();
  EXPECT_EQ(recorder.argument<0>(), 1);
  EXPECT_EQ(recorder.argument<1>(), "one");
  EXPECT_EQ(recorder.calls().front().thread, worker);
}

TEST(CallRecorderTest, CountsEveryCall) {
  const CallRecorder<int> recorder;
  const auto callback = recorder.callback();
  callback(1);
  callback(2);
  EXPECT_EQ(recorder.count(), 2U);
  EXPECT_THROW(recorder.argument<0>(), std::bad_optional_access);
}

TEST(CallRecorderTest, RunsTheGivenCodeInsideTheCall) {
  const CallRecorder<int> recorder;
  std::size_t countInside = 0;
  recorder.callback([&] { countInside = recorder.count(); })(1);
  EXPECT_EQ(countInside, 1U);
}

TEST(RecordingObserverTest, WritesCallsDownInOrder) {
  RecordingObserver observer;
  observer.didEnumerateItems({nullptr});
  observer.didEnumerateItems({});
  observer.finishEnumeratingUpToPage(std::nullopt);
  observer.finishEnumeratingUpToPage("next");
  observer.finishEnumeratingWithError({"d", -3, std::nullopt});
  EXPECT_THAT(observer.calls(),
              ElementsAre("items 1", "items 0", "finished", "finished with page next", "error -3"));
}

TEST(RecordingChangeObserverTest, WritesCallsDownInOrder) {
  RecordingChangeObserver observer;
  observer.didUpdateItems({nullptr});
  observer.didDeleteItems({});
  observer.finishEnumeratingChanges("a", false);
  observer.finishEnumeratingChanges("b", true);
  observer.finishEnumeratingWithError({"d", -1002, std::nullopt});
  EXPECT_THAT(observer.calls(), ElementsAre("updates 1", "deletions 0", "finished at a",
                                            "finished at b, more coming", "error -1002"));
}

TEST(LogRecorderTest, RecordsLinesWhileItLives) {
  const std::string subsystem =
      std::string(deployment::hostBundleIdentifier).append(".fileprovider");
  const platform::Log log(subsystem, "Index");
  LogRecorder recorder;
  log.info("hello %{public}@", {"there"});
  log.error("number %d", {4});
  EXPECT_THAT(recorder.lines(), ElementsAre(indexInfo("hello there"), indexError("number 4")));
  recorder.clear();
  EXPECT_THAT(recorder.lines(), IsEmpty());
}

TEST(ContainerTest, IsTheContainerOfTheProcessUntilItVanishes) {
  Container container;
  const auto found = platform::FileManager::containerURL("any.group");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->path(), container.path());
  container.vanish();
  EXPECT_FALSE(platform::FileManager::containerURL("any.group"));
}

TEST(ContainerTest, HasASocketPathOfTheWantedLength) {
  const Container container = Container::withSocketPathOfLength(103);
  EXPECT_EQ(container.socketPath().size(), 103U);
  EXPECT_TRUE(platform::FileManager::containerURL("any.group"));
}

}  // namespace
}  // namespace tulo::test
