#include <mutex>
#include <utility>

#include "platform/linux/LogSink.h"
#include "tests/support/LogRecorder.h"

namespace tulo::test {

struct LogRecorder::State {
  std::mutex mutex;
  std::vector<LogLine> lines;
  platform::LogSink before;
};

LogRecorder::LogRecorder() : state_(std::make_shared<State>()) {
  state_->before = platform::setLogSink([state = state_](const platform::LogRecord& record) {
    const char* level = record.level == platform::LogLevel::info ? "info" : "error";
    const std::scoped_lock lock(state->mutex);
    state->lines.push_back({record.subsystem, record.category, level, record.message});
  });
}

LogRecorder::~LogRecorder() {
  platform::setLogSink(std::move(state_->before));
}

std::vector<LogLine> LogRecorder::lines() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->lines;
}

void LogRecorder::clear() {
  const std::scoped_lock lock(state_->mutex);
  state_->lines.clear();
}

}  // namespace tulo::test
