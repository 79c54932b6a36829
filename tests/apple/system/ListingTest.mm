#import "tests/apple/system/SystemFixture.h"

#include "platform/Deployment.h"

namespace tulo::test {
namespace {

using testing::ElementsAre;

class ListingTest : public SystemFixture {
 protected:
  id<NSFileProviderEnumerator> enumerator(const std::string &container) const {
    NSError *error = nil;
    const id<NSFileProviderEnumerator> made =
        [extension() enumeratorForContainerItemIdentifier:ns(container)
                                                  request:request()
                                                    error:&error];
    EXPECT_NE(made, nil) << container;
    EXPECT_EQ(error, nil) << container;
    return made;
  }

  RecordingObserver *listed(const std::string &container) const {
    RecordingObserver *observer = [RecordingObserver observer];
    [enumerator(container) enumerateItemsForObserver:observer
                                      startingAtPage:NSFileProviderInitialPageSortedByName];
    return observer;
  }

  static void askAnchor(id<NSFileProviderEnumerator> enumerator, const Answers &answers) {
    [enumerator currentSyncAnchorWithCompletionHandler:^(NSFileProviderSyncAnchor current) {
      answers.add({.data = retained(current)});
    }];
  }

  NSData *anchor() const {
    const Answers answers;
    askAnchor(enumerator(root), answers);
    EXPECT_EQ(answers.only().thread, std::this_thread::get_id());
    EXPECT_TRUE(answers.areReleased());
    return [[answers.only().data.get() retain] autorelease];
  }

  std::vector<std::string> changesSince(NSData *anchor) const {
    RecordingObserver *observer = [RecordingObserver observer];
    [enumerator(root) enumerateChangesForObserver:observer fromSyncAnchor:anchor];
    return [observer calls];
  }

  static std::vector<std::string> names(RecordingObserver *observer) {
    std::vector<std::string> names;
    for (const id<NSFileProviderItem> item in [observer items]) {
      names.push_back(text([item filename]));
    }
    return names;
  }
};

TEST_F(ListingTest, GivesFoldersThenFilesInOnePage) {
  builder().folder("F", "b").folder("G", "a").file({.ulid = "U", .name = "c.txt"});
  RecordingObserver *observer = listed(root);
  EXPECT_THAT([observer calls], ElementsAre("items 3", "finished"));
  EXPECT_THAT(names(observer), ElementsAre("a", "b", "c.txt"));
  EXPECT_EQ(described(static_cast<NSFileProviderItem>([[observer items] lastObject])),
            "i:U in " + root +
                " named c.txt type public.plain-text may 47 size 0 modified 0 uploaded"
                " version 0 / 0-c.txt");
}

TEST_F(ListingTest, OfWhatIsNoFolderIsEmpty) {
  builder().folder("F", "Docs").file({.ulid = "U", .name = "a"});
  for (const std::string &container :
       {std::string("i:U"), std::string("f:F"), std::string("nonsense"),
        text(NSFileProviderWorkingSetContainerItemIdentifier),
        text(NSFileProviderTrashContainerItemIdentifier)}) {
    EXPECT_THAT([listed(container) calls], ElementsAre("items 0", "finished")) << container;
  }
}

TEST_F(ListingTest, WithoutAnIndexIsEmpty) {
  EXPECT_THAT([listed(root) calls], ElementsAre("items 0", "finished"));
}

TEST_F(ListingTest, BringsTenThousandChildrenAtOnce) {
  {
    auto index = builder();
    index.execute("BEGIN");
    for (int number = 0; number < 10'000; ++number) {
      index.file({.ulid = ulidOf(number), .name = "file " + std::to_string(number) + ".txt"});
    }
    index.execute("COMMIT");
  }
  RecordingObserver *observer = listed(root);
  EXPECT_THAT([observer calls], ElementsAre("items 10000", "finished"));
  NSMutableSet *identifiers = [NSMutableSet set];
  for (const id<NSFileProviderItem> item in [observer items]) {
    [identifiers addObject:[item itemIdentifier]];
  }
  EXPECT_EQ([identifiers count], 10'000U);
}

TEST_F(ListingTest, TellsNamesThatTheSystemTakesForOneApart) {
  builder().file({.ulid = "01AAAAAA", .name = "\u00C4.txt"});
  builder().file({.ulid = "01BBBBBB", .name = "A\u0308.TXT"});
  EXPECT_THAT(names(listed(root)),
              testing::UnorderedElementsAre("\u00C4.txt", "A\u0308 (BBBBBB).TXT"));
}

TEST_F(ListingTest, TheAnchorIsTheVersionAndTheDataVersion) {
  const std::string version(deployment::version);
  EXPECT_EQ(text(anchor()), version + "|0");
  builder().folder("F", "Docs");
  EXPECT_TRUE(text(anchor()).starts_with(version + "|"));
  EXPECT_NE(text(anchor()), version + "|0");
}

TEST_F(ListingTest, NothingChangedSinceTheCurrentAnchor) {
  builder().folder("F", "Docs");
  NSData *current = anchor();
  EXPECT_THAT(changesSince(current), ElementsAre("finished at " + text(current)));
}

TEST_F(ListingTest, AnyOtherAnchorIsExpired) {
  builder().folder("F", "Docs");
  for (const std::string &other : {std::string(), text(anchor()) + "0", std::string("0|0")}) {
    EXPECT_THAT(changesSince(bytes(other)),
                ElementsAre("error NSFileProviderErrorDomain -1002 with 0 entries"));
  }
}

TEST_F(ListingTest, InvalidatingChangesNothing) {
  builder().folder("F", "Docs");
  const id<NSFileProviderEnumerator> made = enumerator(root);
  [made invalidate];
  RecordingObserver *observer = [RecordingObserver observer];
  [made enumerateItemsForObserver:observer startingAtPage:NSFileProviderInitialPageSortedByDate];
  EXPECT_THAT([observer calls], ElementsAre("items 1", "finished"));
}

}  // namespace
}  // namespace tulo::test
