#include "service/Departure.h"

#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
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
    departure = std::make_unique<Departure>(*served, engine->openFiles(), engine->notifier());
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

// A program that has a file mapped and nothing else open. One of its own, for a helper of the
// service would share the mapping, and have it written back by its end.
class MappingProgram {
 public:
  MappingProgram(const std::string& path, std::size_t size) {
    std::array<int, 2> orders{};
    std::array<int, 2> answers{};
    EXPECT_EQ(::pipe2(orders.data(), O_CLOEXEC), 0);
    EXPECT_EQ(::pipe2(answers.data(), O_CLOEXEC), 0);
    process_ = ::fork();
    if (process_ == 0) run(orders[0], answers[1], path.c_str(), size);
    ::close(orders[0]);
    ::close(answers[1]);
    orders_.reset(orders[1]);
    answers_.reset(answers[0]);
  }
  ~MappingProgram() { end(); }

  void fill(char byte) {
    EXPECT_EQ(::write(orders_.get(), &byte, 1), 1);
    EXPECT_EQ(::read(answers_.get(), &byte, 1), 1);
  }

  void end() {
    if (!orders_) return;
    orders_.reset();
    ::waitpid(process_, nullptr, 0);
  }

 private:
  [[noreturn]] static void run(int orders, int answers, const char* path, std::size_t size) {
    ::dup2(orders, STDIN_FILENO);
    ::dup2(answers, STDOUT_FILENO);
    ::close_range(STDERR_FILENO + 1, ~0U, 0);
    const int file = ::open(path, O_CREAT | O_RDWR, 0600);
    if (::ftruncate(file, static_cast<off_t>(size)) != 0) ::_exit(1);
    void* memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::close(file);
    for (char byte = 0; memory != MAP_FAILED && ::read(STDIN_FILENO, &byte, 1) == 1;) {
      std::memset(memory, byte, size);
      if (::write(STDOUT_FILENO, &byte, 1) != 1) break;
    }
    ::_exit(0);
  }

  pid_t process_ = -1;
  FileDescriptor orders_;
  FileDescriptor answers_;
};

// What is written through a mapping after the mount has gone from its place.
class MappedDepartureTest : public DepartureTest {
 protected:
  // Less than the kernel hands over by itself.
  static constexpr std::size_t kSize = 16 << 10;

  void SetUp() override {
    DepartureTest::SetUp();
    if (IsSkipped()) return;
    program.emplace(at("a"), kSize);
    program->fill('a');
    ASSERT_TRUE(departure->leave({Leaving::lazily}).goesOn);
    program->fill('b');
  }

  void expectAll() {
    const NodeId id = named("a");
    EXPECT_EQ(engine->files().settle(id), 0);
    EXPECT_EQ(row(id)->size, static_cast<std::int64_t>(kSize));
    EXPECT_TRUE(contentsOf(id) == std::string(kSize, 'b')) << contentsOf(id).substr(0, 1);
    EXPECT_TRUE(change(id)->hasContents());
  }

  std::optional<MappingProgram> program;
};

TEST_F(MappedDepartureTest, ItIsHereOnceTheLastProgramHasGivenItUp) {
  program->end();
  loop.join();
  loop = std::thread([] {});
  expectAll();
}

TEST_F(MappedDepartureTest, ItIsHereWhenTheSystemEndsTheService) {
  departure->prepareEnd(milliseconds(0));
  expectAll();
}

TEST_F(MappedDepartureTest, ItIsHereBeforeProgramsAreCutOff) {
  EXPECT_FALSE(departure->leave({Leaving::byForce}).notWritten);
  expectAll();
}

TEST_F(MappedDepartureTest, AMountThatIsAnothersByNowStaysInThePlace) {
  if (::mount("tmpfs", point.c_str(), "tmpfs", 0, nullptr) != 0) {
    GTEST_SKIP() << "mounting: " << std::strerror(errno);
  }
  departure->prepareEnd(milliseconds(0));
  EXPECT_EQ(::umount(point.c_str()), 0) << "it was taken away";
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
