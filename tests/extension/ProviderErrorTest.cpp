#include "extension/ProviderError.h"

#include <stdexcept>

#include "bridge/HostBridgeError.h"
#include "platform/FileManager.h"
#include "tests/extension/ExtensionFixture.h"

namespace tulo::test {
namespace {

using platform::cocoaError;
using testing::ElementsAre;
using testing::IsEmpty;

const NSError notAuthenticated = fileProviderError(NSFileProviderErrorCode::notAuthenticated);
const NSError insufficientQuota = fileProviderError(NSFileProviderErrorCode::insufficientQuota);

struct KindCase {
  const char* title;
  std::string kind;
  NSError expected;
};

class RemoteErrorTest : public testing::TestWithParam<KindCase> {};

// The message is full of words that would mean something elsewhere.
TEST_P(RemoteErrorTest, IsMappedByItsKindAlone) {
  const auto& [title, kind, expected] = GetParam();
  for (const std::string message : {"", "locked", "conflict", "bearbeitet", "quota"}) {
    LogRecorder log;
    EXPECT_EQ(providerError(HostBridgeError::remote(kind, message), "U", "fetch"), expected);
    EXPECT_THAT(log.lines(),
                ElementsAre(extensionError("fetch failed for U: remote(kind: \"" + kind +
                                           "\", message: \"" + message + "\")")));
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, RemoteErrorTest,
                         testing::ValuesIn<KindCase>({
                             {"Unauthorized", "unauthorized", notAuthenticated},
                             {"NotFound", "not_found", noSuchItem},
                             {"Quota", "quota", insufficientQuota},
                             {"DiskFull", "disk_full", cocoaError(640)},
                             {"InvalidName", "invalid_name", cocoaError(514)},
                             {"Network", "network", serverUnreachable},
                             {"RateLimited", "rate_limited", serverUnreachable},
                             {"Locked", "locked", serverUnreachable},
                             {"CapitalLocked", "Locked", cannotSynchronize},
                             {"Conflict", "conflict", cannotSynchronize},
                             {"GermanWord", "bearbeitet", cannotSynchronize},
                             {"Unknown", "something_else", cannotSynchronize},
                             {"Empty", "", cannotSynchronize},
                             {"TrailingSpace", "quota ", cannotSynchronize},
                             {"PartOfAKind", "not_found_here", cannotSynchronize},
                             {"AllCapitals", "QUOTA", cannotSynchronize},
                         }),
                         CaseName());

struct TextCase {
  const char* title;
  std::string message;
  NSError expected;
};

class FailedErrorTest : public testing::TestWithParam<TextCase> {};

TEST_P(FailedErrorTest, IsMappedByTheWordsInIt) {
  const auto& [title, message, expected] = GetParam();
  const LogRecorder log;
  EXPECT_EQ(providerError(HostBridgeError::failed(message), "U", "delete"), expected);
  EXPECT_THAT(log.lines(),
              ElementsAre(extensionError("delete failed for U: failed(\"" + message + "\")")));
}

// The file manager's errors, the serializer's, any other: by their text as well.
TEST_P(FailedErrorTest, AnyOtherErrorIsMappedLikeIt) {
  const auto& [title, message, expected] = GetParam();
  const LogRecorder log;
  EXPECT_EQ(providerError(platform::FileManagerError(message), "U", "write"), expected);
  EXPECT_EQ(providerError(std::runtime_error(message), "U", "write"), expected);
  const LogLine line = extensionError("write failed for U: " + message);
  EXPECT_THAT(log.lines(), ElementsAre(line, line));
}

INSTANTIATE_TEST_SUITE_P(Texts, FailedErrorTest,
                         testing::ValuesIn<TextCase>({
                             {"NoReply", "no reply from host app", cannotSynchronize},
                             {"LongPath", "socket path too long: 131 bytes", cannotSynchronize},
                             {"UnknownError", "unknown error", cannotSynchronize},
                             {"Empty", "", cannotSynchronize},
                             {"GermanWordAlone", "bearbeitet", serverUnreachable},
                             {"GermanWordInside", "Die Datei wird bearbeitet.", serverUnreachable},
                             {"CapitalGermanWord", "Bearbeitet", cannotSynchronize},
                             {"LockedInside", "the file is locked by somebody", serverUnreachable},
                             {"LockedInsideAWord", "unlockedness", serverUnreachable},
                             {"CapitalLocked", "Locked", cannotSynchronize},
                             {"ConflictInside", "409 conflict", serverUnreachable},
                             {"CapitalConflict", "CONFLICT", cannotSynchronize},
                             {"AKindIsNoWord", "quota", cannotSynchronize},
                             {"NotUtf8", "\xff locked \xff", serverUnreachable},
                         }),
                         CaseName());

TEST(ProviderErrorTest, UnreachableIsToldToTheSystemAndToNobodyElse) {
  const LogRecorder log;
  EXPECT_EQ(providerError(HostBridgeError::unreachable(), "U", "fetch"), serverUnreachable);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ProviderErrorTest, AnEmptyUlidLeavesItsPlaceEmpty) {
  const LogRecorder log;
  providerError(HostBridgeError::failed("E"), "", "write");
  EXPECT_THAT(log.lines(), ElementsAre(extensionError("write failed for : failed(\"E\")")));
}

TEST(ProviderErrorTest, PlaceholdersInTextAreText) {
  const LogRecorder log;
  providerError(HostBridgeError::failed("%{public}@ %d"), "%d", "write");
  EXPECT_THAT(log.lines(),
              ElementsAre(extensionError("write failed for %d: failed(\"%{public}@ %d\")")));
}

TEST(ProviderErrorTest, ProviderErrorsHaveAnEmptyUserInfoAndCocoaErrorsNone) {
  const auto provider = providerError(HostBridgeError::remote("quota", "secret"), "U", "fetch");
  EXPECT_EQ(provider.domain, "NSFileProviderErrorDomain");
  EXPECT_EQ(provider.code, -1003);
  ASSERT_TRUE(provider.userInfo);
  EXPECT_TRUE(provider.userInfo->empty());
  const auto cocoa = providerError(HostBridgeError::remote("disk_full", "secret"), "U", "fetch");
  EXPECT_EQ(cocoa.domain, "NSCocoaErrorDomain");
  EXPECT_EQ(cocoa.code, 640);
  EXPECT_FALSE(cocoa.userInfo);
}

}  // namespace
}  // namespace tulo::test
