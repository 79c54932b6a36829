#include "platform/FileProvider.h"

#include <gtest/gtest.h>

#include "platform/linux/SystemSide.h"

namespace tulo::platform {
namespace {

class FileProviderManagerTest : public testing::Test {
 protected:
  void TearDown() override { setManagerSource({}); }

  const DomainPointer domain_ = std::make_shared<NSFileProviderDomain>("identifier", "name");
};

TEST(FileProviderTest, ContainerIdentifiersDifferAndStayWhereTheyAre) {
  const std::string& root = NSFileProviderRootContainerItemIdentifier();
  EXPECT_EQ(root, "NSFileProviderRootContainerItemIdentifier");
  EXPECT_EQ(&root, &NSFileProviderRootContainerItemIdentifier());
  EXPECT_EQ(NSFileProviderWorkingSetContainerItemIdentifier(),
            "NSFileProviderWorkingSetContainerItemIdentifier");
  EXPECT_EQ(NSFileProviderTrashContainerItemIdentifier(),
            "NSFileProviderTrashContainerItemIdentifier");
}

TEST_F(FileProviderManagerTest, HasAManagerForEachDomainByDefault) {
  EXPECT_NE(NSFileProviderManager::managerForDomain(domain_), nullptr);
}

TEST_F(FileProviderManagerTest, AsksTheSourceThatTheSystemSideSets) {
  class Manager final : public NSFileProviderManager {};
  const auto manager = std::make_shared<Manager>();
  DomainPointer asked;
  setManagerSource([&](const DomainPointer& domain) {
    asked = domain;
    return manager;
  });
  EXPECT_EQ(NSFileProviderManager::managerForDomain(domain_), manager);
  EXPECT_EQ(asked, domain_);
  setManagerSource([](const DomainPointer&) { return nullptr; });
  EXPECT_EQ(NSFileProviderManager::managerForDomain(domain_), nullptr);
  setManagerSource({});
  EXPECT_NE(NSFileProviderManager::managerForDomain(domain_), nullptr);
}

}  // namespace
}  // namespace tulo::platform
