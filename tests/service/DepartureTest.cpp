#include "service/Departure.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <cstring>
#include <thread>

#include "tests/service/support/MountFixture.h"

namespace tulo::test {
namespace {

using control::Leaving;

// A real mount of the engine, served on a thread of its own. Without /dev/fuse there is none.
class DepartureTest : public MountFixture {
 protected:
  void SetUp() override {
    try {
      MountOptions how;
      how.mountPoint = point = directory.file("mount");
      how.name = "test";
      how.readWrite = true;
      ::mkdir(point.c_str(), 0700);
      served = std::make_unique<Mount>(how, writableParts());
    } catch (const MountError& error) {
      GTEST_SKIP() << error.what();
    }
    engine->notifier().start(served->caches());
    departure = std::make_unique<Departure>(*served, engine->openFiles());
    loop = std::thread([this] {
      served->run();
      departure->ended();
    });
  }

  void TearDown() override {
    if (!loop.joinable()) return;
    served->stop();
    loop.join();
    served->abort();
    engine->notifier().stop();
    departure.reset();
    served.reset();
  }

  bool isMounted() const { return MountPoint(point).mounted().has_value(); }
  std::string at(const std::string& name) const { return point + '/' + name; }

  std::string point;
  std::unique_ptr<Mount> served;
  std::unique_ptr<Departure> departure;
  std::thread loop;
};

TEST_F(DepartureTest, AnUnusedMountGoesAndRequestsEnd) {
  EXPECT_TRUE(departure->leave({Leaving::ifUnused}).outcome.ok);
  EXPECT_FALSE(isMounted());
  loop.join();
  loop = std::thread([] {});
}

// Asked for a program other than this one, which the service would be.
TEST_F(DepartureTest, AUsedMountStaysWhateverThatIs) {
  const FileDescriptor file(::open(at("a").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
  ASSERT_TRUE(file);
  const auto reply = departure->leave({Leaving::ifUnused});
  EXPECT_FALSE(reply.outcome.ok);
  EXPECT_EQ(reply.outcome.error, point + " is in use");
  EXPECT_TRUE(isMounted());
}

TEST_F(DepartureTest, LazilyItGoesFromItsPlaceAndOnForWhoHasSomethingOpen) {
  FileDescriptor file(::open(at("a").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
  ASSERT_TRUE(file);
  const auto reply = departure->leave({Leaving::lazily});
  EXPECT_TRUE(reply.outcome.ok);
  EXPECT_TRUE(reply.goesOn);
  EXPECT_FALSE(isMounted());
  EXPECT_EQ(::write(file.get(), "text", 4), 4);
  file.reset();
  loop.join();
  loop = std::thread([] {});
}

TEST_F(DepartureTest, LazilyAnUnusedMountIsAtItsEnd) {
  const auto reply = departure->leave({Leaving::lazily});
  EXPECT_TRUE(reply.outcome.ok);
  EXPECT_FALSE(reply.goesOn);
}

TEST_F(DepartureTest, TheSystemsEndWaitsForWritersOnlySoLong) {
  const FileDescriptor file(::open(at("a").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
  ASSERT_TRUE(file);
  const auto begin = std::chrono::steady_clock::now();
  departure->prepareEnd(milliseconds(300));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(300));
  EXPECT_TRUE(isMounted()) << "the end itself is the caller's";
}

TEST_F(DepartureTest, TheSystemsEndWaitsForNobodyWhoOnlyReads) {
  ::close(::open(at("a").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
  const FileDescriptor file(::open(at("a").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_TRUE(file);
  const auto begin = std::chrono::steady_clock::now();
  departure->prepareEnd(std::chrono::minutes(10));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::minutes(1));
}

TEST_F(DepartureTest, WhoWaitsForWritersStopsWhenRequestsEnd) {
  const FileDescriptor file(::open(at("a").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
  ASSERT_TRUE(file);
  std::thread ending([&] { departure->prepareEnd(std::chrono::minutes(10)); });
  departure->ended();
  ending.join();
}

// More than the kernel hands over at a time, so it is not there yet when that has been told to.
TEST_F(DepartureTest, WhatIsMappedIsHereBeforeAnybodyIsCutOff) {
  constexpr std::size_t kSize = 96 << 20;
  const FileDescriptor file(::open(at("a").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
  ASSERT_EQ(::ftruncate(file.get(), kSize), 0);
  void* memory = ::mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
  ASSERT_NE(memory, MAP_FAILED);
  std::memset(memory, 'x', kSize);
  EXPECT_FALSE(departure->leave({Leaving::byForce}).notWritten);
  list();
  const std::string here = contentsOf(named("a"));
  EXPECT_TRUE(here == std::string(kSize, 'x')) << here.size();
  ::munmap(memory, kSize);
}

TEST_F(DepartureTest, AnOrderIsAnsweredBeforeTheEnd) {
  bool answered = false;
  std::thread asking;
  {
    auto answer = std::make_unique<Departure::Answer>(*departure);
    asking = std::thread([&answered, answer = std::move(answer)]() mutable {
      std::this_thread::sleep_for(milliseconds(50));
      answered = true;
      answer.reset();
    });
  }
  departure->awaitAnswers();
  EXPECT_TRUE(answered);
  asking.join();
}

}  // namespace
}  // namespace tulo::test
