#include "platform/linux/Container.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "platform/FileManager.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::platform {
namespace {

using test::TemporaryDirectory;

// Puts an environment variable back as it was.
class Variable {
 public:
  explicit Variable(const char* name) : name_(name) {
    if (const char* value = std::getenv(name)) before_ = value;
  }
  ~Variable() { set(before_); }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

  void set(const std::optional<std::string>& value) {
    if (value) {
      setenv(name_, value->c_str(), 1);
    } else {
      unsetenv(name_);
    }
  }

 private:
  const char* name_;
  std::optional<std::string> before_;
};

class ContainerDirectoryTest : public testing::Test {
 protected:
  void SetUp() override {
    setContainerDirectory(std::nullopt);
    container_.set(std::nullopt);
    dataHome_.set(std::nullopt);
    home_.set("/home/somebody");
  }
  void TearDown() override { setContainerDirectory(std::nullopt); }

  Variable container_{"TULO_CONTAINER"};
  Variable dataHome_{"XDG_DATA_HOME"};
  Variable home_{"HOME"};
};

TEST_F(ContainerDirectoryTest, TakesTheSettingBeforeTheEnvironmentBeforeTheHome) {
  EXPECT_EQ(containerDirectory(), "/home/somebody/.local/share/tulo");
  dataHome_.set("/data");
  EXPECT_EQ(containerDirectory(), "/data/tulo");
  container_.set("/configured");
  EXPECT_EQ(containerDirectory(), "/configured");
  setContainerDirectory("/set");
  EXPECT_EQ(containerDirectory(), "/set");
  setContainerDirectory(std::nullopt);
  EXPECT_EQ(containerDirectory(), "/configured");
}

TEST_F(ContainerDirectoryTest, TakesAnEmptyValueForNone) {
  dataHome_.set("");
  container_.set("");
  setContainerDirectory("");
  EXPECT_EQ(containerDirectory(), "/home/somebody/.local/share/tulo");
  home_.set(std::nullopt);
  EXPECT_EQ(containerDirectory(), "");
  EXPECT_EQ(FileManager::containerURL("group"), std::nullopt);
}

TEST_F(ContainerDirectoryTest, PassesOverARelativeDataHome) {
  dataHome_.set("relative");
  EXPECT_EQ(containerDirectory(), "/home/somebody/.local/share/tulo");
}

TEST_F(ContainerDirectoryTest, IsAbsoluteWithoutASlashAtTheEndAndOtherwiseAsGiven) {
  setContainerDirectory("/a/../b//c///");
  EXPECT_EQ(containerDirectory(), "/a/../b//c");
  setContainerDirectory("some/where/");
  EXPECT_EQ(containerDirectory(), std::filesystem::current_path().string() + "/some/where");
  container_.set("below");
  setContainerDirectory(std::nullopt);
  EXPECT_EQ(containerDirectory(), std::filesystem::current_path().string() + "/below");
}

TEST_F(ContainerDirectoryTest, IsAContainerOnlyWhileThereIsADirectory) {
  const TemporaryDirectory directory;
  const std::string path = directory.file("group");
  setContainerDirectory(path + "/");
  EXPECT_EQ(FileManager::containerURL("group"), std::nullopt);
  test::writeFile(path, "a file");
  EXPECT_EQ(FileManager::containerURL("group"), std::nullopt);
  std::filesystem::remove(path);
  std::filesystem::create_directory(path);
  EXPECT_EQ(FileManager::containerURL("group"), URL(path));
}

}  // namespace
}  // namespace tulo::platform
