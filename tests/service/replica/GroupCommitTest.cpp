#include "service/replica/GroupCommit.h"

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <thread>

#include "service/replica/Meta.h"
#include "service/replica/ReplicaFile.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

class GroupCommitTest : public ::testing::Test {
 protected:
  void set(const std::string& key, std::int64_t value) {
    commits.commit([&](ReplicaWriter& each) { meta::set(each, key, value); });
  }

  std::int64_t number(const std::string& key) {
    ReplicaReader reader(file.path());
    return meta::integer(reader, key);
  }

  TemporaryDirectory directory;
  ReplicaFile file{directory.path()};
  ReplicaWriter writer{file.path()};
  GroupCommit commits{writer};
};

TEST_F(GroupCommitTest, WhatReturnedIsCommitted) {
  set("a", 1);
  EXPECT_EQ(number("a"), 1);
  EXPECT_EQ(commits.commits(), 1U);
}

TEST_F(GroupCommitTest, WhoComesMeanwhileSharesTheNextTransactionAndAFailureIsOnesOwn) {
  std::promise<void> begun;
  std::promise<void> goOn;
  std::thread first([&] {
    commits.commit([&](ReplicaWriter& each) {
      meta::set(each, "first", std::int64_t{1});
      begun.set_value();
      goOn.get_future().wait();
    });
  });
  begun.get_future().wait();
  std::vector<std::thread> others;
  for (int i = 0; i < 4; ++i) {
    others.emplace_back([&, i] {
      const auto function = [&](ReplicaWriter& each) {
        meta::set(each, std::to_string(i), std::int64_t{1});
        if (i == 2) throw std::runtime_error("no");
      };
      if (i == 2) {
        EXPECT_THROW(commits.commit(function), std::runtime_error);
      } else {
        commits.commit(function);
      }
    });
  }
  // So that they wait; were they late they would only share less.
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  goOn.set_value();
  first.join();
  for (std::thread& other : others)
    other.join();
  EXPECT_EQ(number("first"), 1);
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(number(std::to_string(i)), i == 2 ? 0 : 1) << i;
  EXPECT_LE(commits.commits(), 5U);
}

TEST_F(GroupCommitTest, AFailureAloneLeavesNothing) {
  EXPECT_THROW(commits.commit([](ReplicaWriter& each) {
    meta::set(each, "a", std::int64_t{1});
    throw std::runtime_error("no");
  }),
               std::runtime_error);
  EXPECT_EQ(number("a"), 0);
  EXPECT_EQ(commits.commits(), 0U);
  set("a", 2);
  EXPECT_EQ(number("a"), 2);
}

TEST_F(GroupCommitTest, TheWriterIsLentOnlyWhileNobodyWrites) {
  commits.commit([&](ReplicaWriter&) {
    GroupCommit::Lease lease(commits);
    EXPECT_EQ(lease.reader(), nullptr);
  });
  {
    GroupCommit::Lease lease(commits);
    EXPECT_EQ(lease.reader(), &writer);
    GroupCommit::Lease second(commits);
    EXPECT_EQ(second.reader(), nullptr);
  }
  set("a", 1);
  EXPECT_EQ(number("a"), 1);
}

}  // namespace
}  // namespace tulo::test
