#include "platform/linux/Container.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/linux/Mutex.h"

namespace tulo::platform {

namespace {

struct Setting {
  Mutex mutex;
  std::optional<std::string> directory TULO_GUARDED_BY(mutex);
};

// Never destroyed: a worker may ask while the process ends.
Setting& setting() {
  static Setting& instance = *new Setting;
  return instance;
}

std::string environmentValue(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

std::string absolute(std::string path) {
  if (!path.starts_with('/')) {
    std::error_code failure;
    path = (std::filesystem::current_path(failure) / path).string();
  }
  while (path.size() > 1 && path.ends_with('/'))
    path.pop_back();
  return path;
}

std::string defaultDirectory() {
  const std::string configured = environmentValue("TULO_CONTAINER");
  if (!configured.empty()) return absolute(configured);
  // A relative $XDG_DATA_HOME counts as not set, as its convention wants.
  const std::string dataHome = environmentValue("XDG_DATA_HOME");
  if (dataHome.starts_with('/')) return absolute(dataHome) + "/tulo";
  const std::string home = environmentValue("HOME");
  if (!home.empty()) return absolute(home) + "/.local/share/tulo";
  return {};
}

}  // namespace

void setContainerDirectory(std::optional<std::string> directory) {
  // Made absolute now: the process may change its working directory later.
  if (directory)
    directory = directory->empty() ? std::nullopt : std::optional(absolute(*directory));
  Setting& current = setting();
  const MutexLock lock(current.mutex);
  current.directory = std::move(directory);
}

std::string containerDirectory() {
  {
    Setting& current = setting();
    const MutexLock lock(current.mutex);
    if (current.directory) return *current.directory;
  }
  return defaultDirectory();
}

}  // namespace tulo::platform
