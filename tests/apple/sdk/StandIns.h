// How a test steers and watches the stand-ins for what GNUstep lacks of Apple's frameworks.
//
// Threads: every function may be called on any thread, unless it says otherwise.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tulo::sdk {

// What the file manager answers for every application group that it is asked for; nothing means
// that there is no such group.
void setGroupContainer(std::optional<std::string> path);

// The last group that the file manager was asked for.
std::string lastRequestedGroup();

// One call of the log.
struct LogCall {
  std::string subsystem;
  std::string category;
  std::uint8_t type = 0;
  std::string format;
  std::vector<std::string> arguments;  // "<private>" for one that the format does not make public
};

using LogHandler = std::function<void(const LogCall&)>;

// Replaces who receives the log's calls and returns the one before; nobody at the beginning.
LogHandler setLogHandler(LogHandler handler);

// Whether there are managers for domains; there are at the beginning.
void setManagersExist(bool exist);

// How many managers are alive.
int liveManagers();

// Until no queue has work to do, or the bound is over: false then.
bool waitForIdleQueues();

// Replaces the value of one key in the main bundle's information dictionary: a property-list object
// or nil to have no such key. Not while another thread reads the dictionary.
void setMainBundleValue(const char* key, void* object);
void setMainBundleString(const char* key, const char* value);

}  // namespace tulo::sdk
