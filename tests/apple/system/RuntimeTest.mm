// What the Objective-C runtime says of our classes: their names, their methods, their types.
#include <gmock/gmock.h>

#include <objc/runtime.h>

#include <cctype>
#include <set>

#import "tests/apple/system/SystemPlayer.h"

namespace tulo::test {
namespace {

// A method that a class of ours must have, with the types of its result and arguments as the
// runtime writes them; "B" stands for a truth value, whose type is not the same on every processor.
struct MethodCase {
  const char *name;
  const char *className;
  const char *protocolName;
  const char *selector;
  const char *types;
};

void PrintTo(const MethodCase &row, std::ostream *out) {
  *out << "-[" << row.className << " " << row.selector << "]";
}

constexpr const char *extension = "FileProviderExtension";
constexpr const char *enumerator = "DirectoryEnumerator";
constexpr const char *item = "TuloItem";

const MethodCase methods[] = {
    {"Domain", extension, "NSFileProviderReplicatedExtension", "initWithDomain:", "@@:@"},
    {"Invalidate", extension, "NSFileProviderReplicatedExtension", "invalidate", "v@:"},
    {"Item", extension, "NSFileProviderReplicatedExtension",
     "itemForIdentifier:request:completionHandler:", "@@:@@@?"},
    {"Enumerator", extension, "NSFileProviderEnumerating",
     "enumeratorForContainerItemIdentifier:request:error:", "@@:@@^@"},
    {"Fetch", extension, "NSFileProviderReplicatedExtension",
     "fetchContentsForItemWithIdentifier:version:request:completionHandler:", "@@:@@@@?"},
    {"Create", extension, "NSFileProviderReplicatedExtension",
     "createItemBasedOnTemplate:fields:contents:options:request:completionHandler:", "@@:@Q@Q@@?"},
    {"Modify", extension, "NSFileProviderReplicatedExtension",
     "modifyItem:baseVersion:changedFields:contents:options:request:completionHandler:",
     "@@:@@Q@Q@@?"},
    {"Delete", extension, "NSFileProviderReplicatedExtension",
     "deleteItemWithIdentifier:baseVersion:options:request:completionHandler:", "@@:@@Q@@?"},
    {"Thumbnails", extension, "NSFileProviderThumbnailing",
     "fetchThumbnailsForItemIdentifiers:requestedSize:perThumbnailCompletionHandler:"
     "completionHandler:",
     "@@:@{CGSize=dd}@?@?"},
    {"EnumeratorInvalidate", enumerator, "NSFileProviderEnumerator", "invalidate", "v@:"},
    {"EnumerateItems", enumerator, "NSFileProviderEnumerator",
     "enumerateItemsForObserver:startingAtPage:", "v@:@@"},
    {"EnumerateChanges", enumerator, nullptr,
     "enumerateChangesForObserver:fromSyncAnchor:", "v@:@@"},
    {"SyncAnchor", enumerator, nullptr, "currentSyncAnchorWithCompletionHandler:", "v@:@?"},
    {"ItemIdentifier", item, "NSFileProviderItem", "itemIdentifier", "@@:"},
    {"ItemParent", item, "NSFileProviderItem", "parentItemIdentifier", "@@:"},
    {"ItemFilename", item, "NSFileProviderItem", "filename", "@@:"},
    {"ItemContentType", item, nullptr, "contentType", "@@:"},
    {"ItemCapabilities", item, nullptr, "capabilities", "Q@:"},
    {"ItemSize", item, nullptr, "documentSize", "@@:"},
    {"ItemDate", item, nullptr, "contentModificationDate", "@@:"},
    {"ItemUploaded", item, nullptr, "isUploaded", "B@:"},
    {"ItemDownloaded", item, nullptr, "isDownloaded", "B@:"},
    {"ItemVersion", item, nullptr, "itemVersion", "@@:"},
};

// The types without the arguments' places on the stack, and with the names that a Mac gives.
std::string types(const char *encoding) {
  std::string result;
  for (const char *c = encoding; c != nullptr && *c != '\0'; ++c) {
    if (std::isdigit(static_cast<unsigned char>(*c)) == 0) result += *c;
  }
  const std::string size = @encode(CGSize);
  if (const auto at = result.find(size); at != std::string::npos) {
    result.replace(at, size.size(), "{CGSize=dd}");
  }
  if (result.starts_with(@encode(BOOL))) result.front() = 'B';
  return result;
}

class RequiredMethodTest : public testing::TestWithParam<MethodCase> {};

TEST_P(RequiredMethodTest, IsThereWithItsTypes) {
  const MethodCase &row = GetParam();
  const Method method =
      class_getInstanceMethod(objc_getClass(row.className), sel_registerName(row.selector));
  ASSERT_NE(method, nullptr);
  EXPECT_EQ(types(method_getTypeEncoding(method)), row.types);
}

// So that the declarations that the class is compiled against are held against the table as well.
TEST_P(RequiredMethodTest, HasTheTypesOfItsProtocol) {
  const MethodCase &row = GetParam();
  if (row.protocolName == nullptr) return;
  const objc_method_description declared = protocol_getMethodDescription(
      objc_getProtocol(row.protocolName), sel_registerName(row.selector), YES, YES);
  ASSERT_NE(declared.types, nullptr);
  EXPECT_EQ(types(declared.types), row.types);
}

INSTANTIATE_TEST_SUITE_P(Methods, RequiredMethodTest, testing::ValuesIn(methods),
                         [](const auto &test) { return std::string(test.param.name); });

std::set<std::string> requiredBy(const char *protocolName) {
  unsigned int count = 0;
  objc_method_description *list =
      protocol_copyMethodDescriptionList(objc_getProtocol(protocolName), YES, YES, &count);
  std::set<std::string> selectors;
  for (unsigned int index = 0; index < count; ++index) {
    selectors.insert(sel_getName(list[index].name));
  }
  free(list);
  return selectors;
}

TEST(RuntimeTest, TheTableHasEveryRequiredMethodOfTheProtocols) {
  std::map<std::string, std::set<std::string>> inTable;
  for (const MethodCase &row : methods) {
    if (row.protocolName != nullptr) inTable[row.protocolName].insert(row.selector);
  }
  EXPECT_EQ(inTable.size(), 5U);
  for (const auto &[protocolName, selectors] : inTable) {
    EXPECT_EQ(requiredBy(protocolName.c_str()), selectors) << protocolName;
  }
}

std::vector<std::string> protocolsOf(Class objectClass) {
  unsigned int count = 0;
  Protocol **list = class_copyProtocolList(objectClass, &count);
  std::vector<std::string> names;
  for (unsigned int index = 0; index < count; ++index) {
    names.emplace_back(protocol_getName(list[index]));
  }
  free(list);
  return names;
}

TEST(RuntimeTest, ThePrincipalClassHasItsPlainNameAndProtocols) {
  const apple::AutoreleasePool pool;
  const Class found = principalClass();
  ASSERT_NE(found, nil);
  EXPECT_STREQ(class_getName(found), "FileProviderExtension");
  EXPECT_EQ(class_getSuperclass(found), [NSObject class]);
  EXPECT_THAT(protocolsOf(found), testing::UnorderedElementsAre("NSFileProviderReplicatedExtension",
                                                                "NSFileProviderThumbnailing"));
  EXPECT_TRUE([found instancesRespondToSelector:@selector(domain)]);
}

// A method that is there at all changes what the system does with the extension.
TEST(RuntimeTest, ThePrincipalClassHasNoOptionalMethod) {
  for (const char *selector :
       {"importDidFinishWithCompletionHandler:", "materializedItemsDidChangeWithCompletionHandler:",
        "pendingItemsDidChangeWithCompletionHandler:",
        "fetchContentsForItemWithIdentifier:version:usingExistingContentsAtURL:existingVersion:"
        "request:completionHandler:",
        "supportedServiceSourcesForItemIdentifier:completionHandler:",
        "performActionWithIdentifier:onItemsWithIdentifiers:completionHandler:"}) {
    EXPECT_FALSE([principalClass() instancesRespondToSelector:sel_registerName(selector)])
        << selector;
  }
}

// For each of these the system takes its default, and an answer of ours would replace it.
TEST(RuntimeTest, AnItemRespondsToNoOtherProperty) {
  for (const char *selector : {"fileSystemFlags",
                               "childItemCount",
                               "creationDate",
                               "extendedAttributes",
                               "lastUsedDate",
                               "tagData",
                               "isUploading",
                               "uploadingError",
                               "isDownloading",
                               "downloadingError",
                               "isShared",
                               "isMostRecentVersionDownloaded",
                               "ownerNameComponents",
                               "isSharedByCurrentUser",
                               "mostRecentEditorNameComponents",
                               "symlinkTargetPath",
                               "userInfo",
                               "typeAndCreator",
                               "contentPolicy",
                               "isTrashed",
                               "favoriteRank",
                               "typeIdentifier",
                               "versionIdentifier",
                               "decorations"}) {
    EXPECT_FALSE([objc_getClass("TuloItem") instancesRespondToSelector:sel_registerName(selector)])
        << selector;
  }
}

class UnavailableInitializerDeathTest : public testing::TestWithParam<const char *> {};

TEST_P(UnavailableInitializerDeathTest, StopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      [[objc_getClass(GetParam()) alloc] init],
      std::string(R"x(initializer "init\(\)" is not implemented for "TuloFileProvider\.)x") +
          GetParam() + "\"");
}

INSTANTIATE_TEST_SUITE_P(Classes, UnavailableInitializerDeathTest,
                         testing::Values(extension, enumerator, item),
                         [](const auto &test) { return std::string(test.param); });

// The tests run with zombies, which turn a message to a dead object into the end of the process.
// That this is so is seen here, since no other test would show it.
TEST(ZombieDeathTest, AMessageToADeadObjectStopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        const apple::AutoreleasePool pool;
        TemplateItem *dead = [[TemplateItem alloc] init];
        [dead release];
        [dead filename];
      },
      "");
}

}  // namespace
}  // namespace tulo::test
