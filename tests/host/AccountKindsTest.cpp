#include "host/AccountKinds.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "host/base/HostError.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

class AccountKindsTest : public testing::Test {
 protected:
  std::unique_ptr<Account> made(const AccountSource& source) {
    return makeAccount(source, {"42", std::nullopt, container_, ulids_, log_});
  }

  const test::TemporaryDirectory directory_;
  const Container container_{directory_.file("container")};
  UlidSource ulids_;
  const HostLog log_{false};
};

TEST_F(AccountKindsTest, AFolderIsAnAccountOfItsFiles) {
  std::filesystem::create_directory(directory_.file("root"));
  test::writeFile(directory_.file("root/a"), "x");
  const auto account = made(FolderSource{directory_.file("root")});
  account->start();
  const AccountStatus status = account->status();
  EXPECT_EQ(status.root, std::filesystem::canonical(directory_.file("root")));
  EXPECT_EQ(status.items, 1);
  EXPECT_TRUE(status.isSignedIn);
  EXPECT_TRUE(std::filesystem::exists(container_.pathOf("state-42.db")));
}

TEST_F(AccountKindsTest, WhatCannotBeServedIsRefused) {
  test::writeFile(directory_.file("file"), "x");
  EXPECT_THROW(made(FolderSource{""}), StartError);
  EXPECT_THROW(made(FolderSource{directory_.file("none")}), StartError);
  EXPECT_THROW(made(FolderSource{directory_.file("file")}), StartError);
  EXPECT_THROW(made(FolderSource{container_.path()}), StartError);
}

}  // namespace
}  // namespace tulo::host
