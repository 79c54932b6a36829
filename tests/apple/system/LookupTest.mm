#import "tests/apple/system/SystemFixture.h"

namespace tulo::test {
namespace {

class LookupTest : public SystemFixture {
 protected:
  // The block is called before the request returns, on its thread, and the progress is complete.
  Answer lookedUp(const std::string &identifier) const {
    const Call call = lookUp(extension(), identifier);
    const Answer answer = call.answers.only();
    EXPECT_EQ(answer.thread, std::this_thread::get_id());
    EXPECT_EQ([call.progress.get() totalUnitCount], 1);
    EXPECT_EQ([call.progress.get() completedUnitCount], 1);
    EXPECT_TRUE(call.answers.areReleased());
    return answer;
  }

  std::string found(const std::string &identifier) const {
    const Answer answer = lookedUp(identifier);
    EXPECT_EQ(described(answer.error.get()), "none");
    return described(answer.item.get());
  }
};

TEST_F(LookupTest, TheRootNeedsNoIndex) {
  EXPECT_EQ(found(root), root + likeTheRoot);
  EXPECT_TRUE([[lookedUp(root).item.get() itemIdentifier]
      isEqualToString:NSFileProviderRootContainerItemIdentifier]);
}

TEST_F(LookupTest, AFolderIsItsRow) {
  builder().folder("F", "Docs").folder("G", "inner", "F");
  EXPECT_EQ(found("f:G"),
            "f:G in f:F named inner type public.folder may 47 size none modified none uploaded"
            " version 0 / 0-inner");
}

TEST_F(LookupTest, AFileIsItsRow) {
  builder().file({.ulid = "U", .name = "Docs.pdf", .size = 5, .modified = 6, .version = -1});
  EXPECT_EQ(found("i:U"), "i:U in " + root +
                              " named Docs.pdf type com.adobe.pdf may 47 size 5 modified 6"
                              " uploaded version -1 / -1-Docs.pdf");
}

TEST_F(LookupTest, ALockedFileMayOnlyBeReadAndAnEmptyOneHasItsSize) {
  builder().file({.ulid = "U", .name = "a", .folder = "F", .version = 3, .lockedBy = 0});
  EXPECT_EQ(found("i:U"),
            "i:U in f:F named a type public.data may 1 size 0 modified 0 uploaded version 3 / 3-a");
}

TEST_F(LookupTest, TheSizeHoldsAllOf64Bits) {
  builder().file({.ulid = "U", .name = "a", .size = std::numeric_limits<std::int64_t>::max()});
  EXPECT_EQ([[lookedUp("i:U").item.get() documentSize] longLongValue],
            std::numeric_limits<long long>::max());
}

TEST_F(LookupTest, TypesThatNobodyDeclaredAreKeptAsTheSystemMadeThem) {
  builder().file({.ulid = "U", .name = "a.tulodyn"});
  EXPECT_EQ(text([[lookedUp("i:U").item.get() contentType] identifier]),
            "dyn.ah62d4rv4ge81k55tr6w1k");
}

TEST_F(LookupTest, UnknownIdentifiersAreNoSuchItem) {
  builder().folder("F", "Docs");
  for (const char *identifier : {"", "i:F", "f:", "nonsense"}) {
    const Answer answer = lookedUp(identifier);
    EXPECT_EQ(described(answer.item.get()), "none") << identifier;
    EXPECT_EQ(described(answer.error.get()), noSuchItem) << identifier;
    EXPECT_TRUE([[answer.error.get() domain] isEqualToString:NSFileProviderErrorDomain]);
  }
}

// Both spellings of one name reach the system as the host wrote them.
TEST_F(LookupTest, NamesComeAsTheyAreSpelled) {
  const std::string composed = "\u00C4rger \u65E5\u672C \U0001F600.txt";
  const std::string decomposed = "A\u0308rger \u65E5\u672C \U0001F600.txt";
  builder().file({.ulid = "C", .name = composed, .folder = "F"});
  builder().file({.ulid = "D", .name = decomposed, .folder = "G"});
  EXPECT_EQ(text([lookedUp("i:C").item.get() filename]), composed);
  EXPECT_EQ(text([lookedUp("i:D").item.get() filename]), decomposed);
  EXPECT_EQ(text([[lookedUp("i:D").item.get() itemVersion] metadataVersion]), "0-" + decomposed);
}

TEST_F(LookupTest, TheMetadataVersionMayBeLongerThanANameIsShort) {
  const std::string name(255, 'n');
  builder().file({.ulid = "U", .name = name, .version = 1});
  EXPECT_EQ(text([[lookedUp("i:U").item.get() itemVersion] metadataVersion]), "1-" + name);
}

TEST_F(LookupTest, TwoDomainsInOneProcessAreIndependent) {
  IndexBuilder(container_.file("state-1.db")).folder("F", "of the first");
  IndexBuilder(container_.file("state-2.db")).folder("F", "of the second");
  const auto first = extensionFor("1");
  const auto second = extensionFor("2");
  EXPECT_EQ(text([lookUp(first.get(), "f:F").answers.only().item.get() filename]), "of the first");
  EXPECT_EQ(text([lookUp(second.get(), "f:F").answers.only().item.get() filename]),
            "of the second");
}

TEST_F(LookupTest, KeepsTheDomainAndLogsItOnce) {
  NSFileProviderDomain *domain = domainFor("7");
  const auto made =
      Retained<ExtensionObject *>::adopting([[principalClass() alloc] initWithDomain:domain]);
  EXPECT_EQ([made.get() performSelector:@selector(domain)], domain);
  EXPECT_THAT(log_.lines(),
              testing::ElementsAre(extensionInfo("init for domain " + text([domain identifier]) +
                                                 " (index state-7.db)")));
}

TEST_F(LookupTest, InvalidatingChangesNothing) {
  builder().folder("F", "Docs");
  [extension() invalidate];
  EXPECT_EQ(text([lookedUp("f:F").item.get() filename]), "Docs");
}

TEST(SystemManagerDeathTest, NoManagerStopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        const apple::AutoreleasePool pool;
        sdk::setManagersExist(false);
        extensionFor("42");
      },
      "no manager for the domain");
}

}  // namespace
}  // namespace tulo::test
