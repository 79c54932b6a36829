#include "host/account/Request.h"

#include <gtest/gtest.h>

namespace tulo::host {
namespace {

TEST(RequestTest, OneStructStandsForTwoOperations) {
  EXPECT_EQ(operationName(LockRequest{"a", "p", 7}), "lock");
  EXPECT_EQ(operationName(LockRequest{"a", "p", std::nullopt}), "unlock");
  EXPECT_EQ(operationName(SignInRequest{"a", true}), "login");
  EXPECT_EQ(operationName(SignInRequest{"a", false}), "logout");
}

TEST(RequestTest, EveryRequestButTheStatusConcernsAnAccount) {
  EXPECT_EQ(accountOf(FetchRequest{"a", "u"}), "a");
  EXPECT_EQ(accountOf(SignInRequest{"b", true}), "b");
  EXPECT_FALSE(accountOf(StatusRequest{}));
}

TEST(RequestTest, OnlyCreateAndModifyNameStagedContents) {
  EXPECT_EQ(stagedPathOf(CreateRequest{"a", "n", {}, "p"}), "p");
  EXPECT_FALSE(stagedPathOf(CreateRequest{"a", "n", {}, {}}));
  EXPECT_EQ(stagedPathOf(ModifyRequest{"a", "u", false, "p", {}, {}}), "p");
  EXPECT_FALSE(stagedPathOf(LockRequest{"a", "p", 7})) << "a path of another kind";
}

}  // namespace
}  // namespace tulo::host
