#include "host/Host.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "host/base/HostError.h"
#include "tests/host/HostFixture.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;

class HostOptionsTest : public HostTest {};

TEST_F(HostOptionsTest, ASecondHostOnTheContainerRefusesToStart) {
  startHost();
  host::Host* first = &runningHost();
  try {
    host::Host second(options());
    FAIL() << "started";
  } catch (const host::StartError& error) {
    EXPECT_EQ(std::string_view(error.what()), "another host (process " +
                                                  std::to_string(::getpid()) +
                                                  ") already serves the container " + container_);
  }
  EXPECT_EQ(first, &runningHost());
  EXPECT_EQ(createFolder("still-served")["ok"], true);
}

TEST_F(HostOptionsTest, UnusableOptionsAreNamed) {
  const auto refused = [&](const std::function<void(host::HostOptions&)>& change) {
    auto changed = options();
    change(changed);
    EXPECT_THROW(startHost(changed), host::StartError);
  };
  refused([](auto& o) { o.root += "/none"; });
  refused([&](auto& o) { o.root = container_; });
  refused([](auto& o) { o.container = ""; });
  refused([](auto& o) { o.container = "/dev/null/x"; });
  refused([&](auto& o) { o.accounts["primary"] = host::FolderSource{root_}; });
  refused([&](auto& o) { o.accounts["a/b"] = host::FolderSource{root_}; });
  refused([&](auto& o) { o.accounts["a?b"] = host::FolderSource{root_}; });
  refused([&](auto& o) { o.accounts[""] = host::FolderSource{root_}; });
  makeFile("file", "x");
  refused([&](auto& o) { o.root = inRoot("file"); });
  startHost();
}

TEST_F(HostOptionsTest, AContainerThatOthersMayWriteToIsRefused) {
  fs::create_directory(container_);
  ASSERT_EQ(::chmod(container_.c_str(), 0777), 0);
  EXPECT_THROW(startHost(), host::StartError);
}

}  // namespace
}  // namespace tulo::test
