#include "service/base/ServicePaths.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

class ServicePathsTest : public ::testing::Test {
 protected:
  ServicePathsTest() {
    for (const char* name : {"XDG_STATE_HOME", "XDG_RUNTIME_DIR", "HOME"}) {
      const char* value = std::getenv(name);
      saved_[name] = value ? std::optional<std::string>(value) : std::nullopt;
      ::unsetenv(name);
    }
  }
  ~ServicePathsTest() override {
    for (const auto& [name, value] : saved_) {
      if (value) {
        ::setenv(name.c_str(), value->c_str(), 1);
      } else {
        ::unsetenv(name.c_str());
      }
    }
  }

  TemporaryDirectory directory;

 private:
  std::map<std::string, std::optional<std::string>> saved_;
};

TEST_F(ServicePathsTest, TheStateLiesWhereTheEnvironmentSaysElseInTheHome) {
  ::setenv("HOME", "/home/someone", 1);
  EXPECT_EQ(paths::stateDirectory("test"), "/home/someone/.local/state/tulo/test");
  ::setenv("XDG_STATE_HOME", "/state", 1);
  EXPECT_EQ(paths::stateDirectory("test"), "/state/tulo/test");
}

TEST_F(ServicePathsTest, ARelativeDirectoryDoesNotCount) {
  ::setenv("HOME", "/home/someone", 1);
  ::setenv("XDG_STATE_HOME", "state", 1);
  ::setenv("XDG_RUNTIME_DIR", "run", 1);
  EXPECT_EQ(paths::stateDirectory("test"), "/home/someone/.local/state/tulo/test");
  EXPECT_EQ(paths::controlSocket("test"), "/home/someone/.local/state/tulo/test/control.sock");
}

TEST_F(ServicePathsTest, WithoutAnyDirectoryItSaysWhatToSet) {
  try {
    paths::stateDirectory("test");
    FAIL();
  } catch (const ServiceError& error) {
    EXPECT_NE(std::string(error.what()).find("$XDG_STATE_HOME"), std::string::npos);
  }
}

TEST_F(ServicePathsTest, ADomainIsSpelledAsADirectoryCanHoldIt) {
  ::setenv("XDG_STATE_HOME", "/state", 1);
  ::setenv("XDG_RUNTIME_DIR", "/run/user/1", 1);
  EXPECT_EQ(paths::stateDirectory("a/b"), "/state/tulo/a%2Fb");
  EXPECT_EQ(paths::stateDirectory(".."), "/state/tulo/%2E%2E");
  EXPECT_EQ(paths::controlSocket("a/b"), "/run/user/1/tulo/a%2Fb.sock");
}

TEST_F(ServicePathsTest, MakesDirectoriesForThisUserOnly) {
  const std::string path = directory.file("a") + "/b/c";
  paths::createPrivateDirectory(path);
  paths::createPrivateDirectory(path);
  for (const std::string& made : {path, directory.file("a")}) {
    struct stat status = {};
    ASSERT_EQ(::stat(made.c_str(), &status), 0) << made;
    EXPECT_EQ(status.st_mode & 0777U, 0700U) << made;
  }
}

TEST_F(ServicePathsTest, ADirectoryThatCannotBeMadeIsAnError) {
  writeFile(directory.file("file"), "");
  EXPECT_THROW(paths::createPrivateDirectory(directory.file("file") + "/below"), ServiceError);
}

TEST_F(ServicePathsTest, ADomainIsLockedForOneAndTheLockNamesWhoHasIt) {
  auto lock = std::make_unique<DomainLock>(directory.path());
  try {
    const DomainLock second(directory.path());
    FAIL();
  } catch (const ServiceError& error) {
    EXPECT_NE(std::string(error.what()).find(std::to_string(::getpid())), std::string::npos);
  }
  lock.reset();
  EXPECT_NO_THROW(DomainLock{directory.path()});
}

TEST_F(ServicePathsTest, WhoFindsTheLockTakenIsToldWhereTheAccountIsMounted) {
  const DomainLock lock(directory.path());
  lock.tellPlace("/home/ann/My Cloud");
  try {
    const DomainLock second(directory.path());
    FAIL();
  } catch (const DomainTaken& taken) {
    EXPECT_EQ(taken.process(), std::to_string(::getpid()));
    EXPECT_EQ(taken.place(), "/home/ann/My Cloud");
    EXPECT_NE(std::string(taken.what()).find("/home/ann/My Cloud"), std::string::npos);
  }
}

TEST_F(ServicePathsTest, ALockWithoutAPlaceNamesTheProcessAlone) {
  const DomainLock lock(directory.path());
  try {
    const DomainLock second(directory.path());
    FAIL();
  } catch (const DomainTaken& taken) {
    EXPECT_EQ(taken.process(), std::to_string(::getpid()));
    EXPECT_EQ(taken.place(), "");
  }
}

TEST_F(ServicePathsTest, WhatALongerNumberLeftInTheLockGoes) {
  writeFile(directory.file("lock"), "123456789012345");
  const DomainLock lock(directory.path());
  EXPECT_EQ(readFile(directory.file("lock")), std::to_string(::getpid()));
}

TEST_F(ServicePathsTest, WithoutItsDirectoryThereIsNoLock) {
  EXPECT_THROW(DomainLock{directory.file("missing")}, ServiceError);
}

}  // namespace
}  // namespace tulo::test
