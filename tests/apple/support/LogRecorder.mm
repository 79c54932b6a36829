#include "tests/support/LogRecorder.h"

#include <os/log.h>

#include <mutex>
#include <utility>

#include "tests/apple/sdk/StandIns.h"

namespace tulo::test {

struct LogRecorder::State {
  std::mutex mutex;
  std::vector<LogLine> lines;
  sdk::LogHandler before;
};

namespace {

std::string levelName(std::uint8_t type) {
  if (type == OS_LOG_TYPE_INFO) return "info";
  if (type == OS_LOG_TYPE_ERROR) return "error";
  return "type " + std::to_string(type);
}

// The platform hands over one public argument, the message.
std::string messageOf(const sdk::LogCall &call) {
  if (call.format == "%{public}@" && call.arguments.size() == 1) return call.arguments.front();
  return "unexpected format " + call.format;
}

}  // namespace

LogRecorder::LogRecorder() : state_(std::make_shared<State>()) {
  state_->before = sdk::setLogHandler([state = state_](const sdk::LogCall &call) {
    const std::scoped_lock lock(state->mutex);
    state->lines.push_back({call.subsystem, call.category, levelName(call.type), messageOf(call)});
  });
}

LogRecorder::~LogRecorder() { sdk::setLogHandler(std::move(state_->before)); }

std::vector<LogLine> LogRecorder::lines() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->lines;
}

void LogRecorder::clear() {
  const std::scoped_lock lock(state_->mutex);
  state_->lines.clear();
}

}  // namespace tulo::test
