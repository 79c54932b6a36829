// How long our objects and the system's live, counted by Foundation as they are made and freed.
#import <Foundation/NSDebug.h>

#include <functional>

#import "tests/apple/system/SystemFixture.h"

namespace tulo::test {
namespace {

// Everything of ours that the system can hold, and everything of the system's that we can.
const char *const countedClasses[] = {"FileProviderExtension",
                                      "DirectoryEnumerator",
                                      "TuloItem",
                                      "NSFileProviderDomain",
                                      "NSFileProviderManager",
                                      "NSFileProviderRequest",
                                      "NSFileProviderItemVersion",
                                      "NSProgress",
                                      "TemplateItem",
                                      "RecordingObserver"};

std::map<std::string, int> liveObjects() {
  std::map<std::string, int> counts;
  for (const char *name : countedClasses) {
    counts[name] = static_cast<int>(GSDebugAllocationCount(objc_getClass(name)));
  }
  return counts;
}

class LifetimeTest : public testing::Test {
 protected:
  LifetimeTest() {
    GSDebugAllocationActive(YES);
    writeFile(image_, "the image");
  }

  // Runs the test's body, and then holds what lives against what lived before it.
  void expectNothingLeft(const std::function<void()> &body) {
    const auto before = liveObjects();
    {
      const apple::AutoreleasePool pool;
      body();
    }
    EXPECT_TRUE(sdk::waitForIdleQueues());
    EXPECT_EQ(liveObjects(), before);
  }

  IndexBuilder builder() const { return IndexBuilder(container_.file("state-42.db")); }

  std::string replyWithImage() const {
    return platform::JSONSerialization::data({{"ok", true}, {"path", image_}});
  }

  Container container_;
  const LogRecorder log_;
  TemporaryDirectory elsewhere_;
  const std::string image_ = elsewhere_.file("image");
};

TEST_F(LifetimeTest, TheCountsSeeWhatLives) {
  const apple::AutoreleasePool pool;
  const int before = liveObjects()["FileProviderExtension"];
  const auto extension = extensionFor("42");
  EXPECT_EQ(liveObjects()["FileProviderExtension"], before + 1);
}

TEST_F(LifetimeTest, AnExtensionReleasesItsDomainAndManager) {
  expectNothingLeft([] {
    const auto extension = extensionFor("42");
    EXPECT_EQ(sdk::liveManagers(), 1);
  });
  EXPECT_EQ(sdk::liveManagers(), 0);
}

TEST_F(LifetimeTest, LookupsAndListingsLeaveNothing) {
  builder().folder("F", "Docs").file({.ulid = "U", .name = "a"});
  expectNothingLeft([] {
    const auto extension = extensionFor("42");
    for (int turn = 0; turn < 10; ++turn) {
      lookUp(extension.get(), "i:U");
      lookUp(extension.get(), "i:nobody");
      const id<NSFileProviderEnumerator> enumerator =
          [extension.get() enumeratorForContainerItemIdentifier:ns(root)
                                                        request:request()
                                                          error:nullptr];
      RecordingObserver *observer = [RecordingObserver observer];
      [enumerator enumerateItemsForObserver:observer
                             startingAtPage:NSFileProviderInitialPageSortedByName];
      [enumerator enumerateChangesForObserver:observer fromSyncAnchor:bytes("old")];
      [enumerator currentSyncAnchorWithCompletionHandler:^(NSFileProviderSyncAnchor anchor) {
        EXPECT_NE(anchor, nil);
      }];
    }
  });
}

TEST_F(LifetimeTest, AnItemAndAnEnumeratorOutliveTheirExtension) {
  builder().folder("F", "Docs");
  expectNothingLeft([] {
    Retained<NSFileProviderItem> item;
    Retained<id<NSFileProviderEnumerator>> enumerator;
    {
      const apple::AutoreleasePool pool;
      const auto extension = extensionFor("42");
      item = lookUp(extension.get(), "f:F").answers.only().item;
      enumerator = retained([extension.get() enumeratorForContainerItemIdentifier:ns(root)
                                                                          request:request()
                                                                            error:nullptr]);
    }
    EXPECT_EQ(text([item.get() filename]), "Docs");
    RecordingObserver *observer = [RecordingObserver observer];
    [enumerator.get() enumerateItemsForObserver:observer
                                 startingAtPage:NSFileProviderInitialPageSortedByName];
    EXPECT_THAT([observer calls], testing::ElementsAre("items 1", "finished"));
  });
}

TEST_F(LifetimeTest, AnItemIsReadAndReleasedOnManyThreads) {
  builder().folder("F", "Docs");
  expectNothingLeft([] {
    const auto extension = extensionFor("42");
    std::vector<std::thread> threads;
    {
      const Retained<NSFileProviderItem> item = lookUp(extension.get(), "f:F").answers.only().item;
      for (int number = 0; number < 8; ++number) {
        threads.emplace_back([item] {
          const apple::AutoreleasePool pool;
          for (int turn = 0; turn < 100; ++turn) EXPECT_EQ(text([item.get() filename]), "Docs");
        });
      }
    }
    for (std::thread &thread : threads) thread.join();
  });
}

TEST_F(LifetimeTest, RequestsOutliveTheirExtension) {
  builder().file({.ulid = "U", .name = "a"});
  expectNothingLeft([this] {
    Gate gate;
    FakeHost host(container_.socketPath());
    host.then(repliesAfter(gate, replyWithImage()));
    std::vector<Call> calls;
    {
      const apple::AutoreleasePool pool;
      const auto extension = extensionFor("42");
      calls.push_back(fetch(extension.get(), "i:U"));
      calls.push_back(fetchThumbnails(extension.get(), {"i:U"}));
      calls.push_back(modify(extension.get(),
                             [TemplateItem itemWithIdentifier:@"i:U" parent:ns(root) name:@"b"],
                             NSFileProviderItemFilename));
      calls.push_back(remove(extension.get(), "i:U"));
      EXPECT_TRUE(host.waitForRequests(calls.size()));
      [extension.get() invalidate];
    }
    EXPECT_EQ(sdk::liveManagers(), 0);
    gate.open();
    for (const Call &call : calls) {
      EXPECT_EQ(call.finished().error.get(), nil);
      EXPECT_TRUE(eventually([&] { return call.answers.areReleased(); }));
    }
  });
}

TEST_F(LifetimeTest, WorkersHaveAPoolOfTheirOwn) {
  builder().file({.ulid = "U", .name = "a"});
  FakeHost host(container_.socketPath());
  host.then(replies(replyWithImage()));
  expectNothingLeft([] {
    const auto extension = extensionFor("42");
    for (int turn = 0; turn < 10; ++turn) fetch(extension.get(), "i:U").finished();
    fetchThumbnails(extension.get(), {"i:U", "f:F", "i:U"}).finished();
  });
}

// The system sends its requests on threads of its own choosing, several at a time.
TEST_F(LifetimeTest, ManyThreadsAskOneExtensionAtOnce) {
  builder().folder("F", "Docs").file({.ulid = "U", .name = "a"});
  FakeHost host(container_.socketPath());
  host.then(replies(replyWithImage()));
  expectNothingLeft([] {
    const auto extension = extensionFor("42");
    std::vector<std::thread> threads;
    for (int number = 0; number < 8; ++number) {
      threads.emplace_back([&extension] {
        for (int turn = 0; turn < 20; ++turn) {
          const apple::AutoreleasePool pool;
          EXPECT_EQ(text([lookUp(extension.get(), "f:F").answers.only().item.get() filename]),
                    "Docs");
          RecordingObserver *observer = [RecordingObserver observer];
          [[extension.get() enumeratorForContainerItemIdentifier:ns(root)
                                                         request:request()
                                                           error:nullptr]
              enumerateItemsForObserver:observer
                         startingAtPage:NSFileProviderInitialPageSortedByName];
          EXPECT_THAT([observer calls], testing::ElementsAre("items 2", "finished"));
          EXPECT_NE(fetch(extension.get(), "i:U").finished().url.get(), nil);
        }
      });
    }
    for (std::thread &thread : threads) thread.join();
  });
}

// An exception that leaves a function of ours passes the pool that the function opened.
TEST_F(LifetimeTest, AFailureLeavesNothing) {
  expectNothingLeft([this] {
    const auto extension = extensionFor("42");
    NSURL *missing = [NSURL fileURLWithPath:ns(elsewhere_.file("missing"))];
    TemplateItem *item = [TemplateItem itemWithIdentifier:@"temporary" parent:ns(root) name:@"a"];
    for (int turn = 0; turn < 10; ++turn) {
      EXPECT_NE(create(extension.get(), item, missing).finished().error.get(), nil);
    }
  });
}

}  // namespace
}  // namespace tulo::test
