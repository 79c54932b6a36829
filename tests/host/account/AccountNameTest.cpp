#include "host/account/AccountName.h"

#include <gtest/gtest.h>

#include <string>

#include "host/base/HostError.h"

namespace tulo::host {
namespace {

using std::string_literals::operator""s;

TEST(AccountNameTest, TheIndexBearsTheNameOfItsAccount) {
  EXPECT_EQ(indexFileName("primary"), "state.db");
  EXPECT_EQ(indexFileName("42"), "state-42.db");
}

TEST(AccountNameTest, WhatCanBePartOfAFileNameIsAccepted) {
  for (const std::string& name : {"42"s, "a b"s, "\u00e4"s, std::string(200, 'n')}) {
    EXPECT_NO_THROW(requireFurtherAccountName(name)) << name;
  }
}

TEST(AccountNameTest, WhatCannotIsNamed) {
  for (const std::string& name :
       {""s, "primary"s, "a/b"s, "a?b"s, "a#b"s, "a%b"s, "a\0b"s, std::string(201, 'n')}) {
    EXPECT_THROW(requireFurtherAccountName(name), StartError) << name;
  }
}

}  // namespace
}  // namespace tulo::host
