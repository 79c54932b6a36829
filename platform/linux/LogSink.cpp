#include "platform/linux/LogSink.h"

#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <utility>

#include "platform/linux/LogDelivery.h"
#include "platform/linux/Mutex.h"

// The place in this file that hands records over says nothing about where they come from.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

namespace tulo::platform {

namespace {

const char* levelName(LogLevel level) {
  return level == LogLevel::error ? "error" : "info";
}

std::string escapedByte(char c) {
  constexpr std::string_view digits = "0123456789abcdef";
  if (c == '\n') return "\\n";
  if (c == '\r') return "\\r";
  if (c == '\t') return "\\t";
  const auto byte = static_cast<unsigned char>(c);
  return {'\\', 'x', digits[byte >> 4U], digits[byte & 0xFU]};
}

// The two-byte form of U+0080 to U+009F, which terminals obey like the controls of ASCII.
bool startsHighControl(std::string_view text) {
  return text.size() > 1 && text[0] == '\xC2' && static_cast<unsigned char>(text[1]) >= 0x80 &&
         static_cast<unsigned char>(text[1]) < 0xA0;
}

std::string withoutControls(std::string_view text) {
  std::string line;
  line.reserve(text.size());
  for (; !text.empty(); text.remove_prefix(1)) {
    const auto byte = static_cast<unsigned char>(text.front());
    if (startsHighControl(text)) {
      text.remove_prefix(1);
      line += escapedByte(text.front());
    } else if (byte < 0x20 || byte == 0x7F) {
      line += escapedByte(text.front());
    } else {
      line += text.front();
    }
  }
  return line;
}

// One write for the whole line keeps lines of several processes apart.
void writeLine(std::string line) {
  line += '\n';
  std::string_view rest = line;
  while (!rest.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, rest.data(), rest.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
}

// The journal's convention: the variable names device and inode of the stream that it reads.
bool standardErrorIsJournal() {
  const char* stream = std::getenv("JOURNAL_STREAM");
  struct stat status {};
  if (stream == nullptr || ::fstat(STDERR_FILENO, &status) != 0) return false;
  return stream == std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

void sendToJournal(const LogRecord& record) {
  const std::array<std::string, 4> fields = {
      "MESSAGE=" + record.message, "SUBSYSTEM=" + record.subsystem, "CATEGORY=" + record.category,
      record.level == LogLevel::error ? "PRIORITY=3" : "PRIORITY=6"};
  std::array<iovec, fields.size()> vectors{};
  for (std::size_t index = 0; index < fields.size(); ++index) {
    vectors[index] = {const_cast<char*>(fields[index].data()), fields[index].size()};
  }
  if (sd_journal_sendv(vectors.data(), static_cast<int>(vectors.size())) < 0) {
    writeLine(logTextLine(record));
  }
}

void deliverByDefault(const LogRecord& record) {
  static const bool toJournal = standardErrorIsJournal();
  if (toJournal) {
    sendToJournal(record);
  } else {
    writeLine(logTextLine(record));
  }
}

struct CurrentSink {
  Mutex mutex;
  LogSink sink TULO_GUARDED_BY(mutex);
};

// Never destroyed: a worker may log while the process ends.
CurrentSink& currentSink() {
  static CurrentSink& instance = *new CurrentSink;
  return instance;
}

thread_local bool isDelivering = false;

class DeliveryMark {
 public:
  DeliveryMark() { isDelivering = true; }
  ~DeliveryMark() { isDelivering = false; }
  DeliveryMark(const DeliveryMark&) = delete;
  DeliveryMark& operator=(const DeliveryMark&) = delete;
};

}  // namespace

void deliverLogRecord(const LogRecord& record) {
  if (isDelivering) return;
  const DeliveryMark mark;
  CurrentSink& current = currentSink();
  const MutexLock lock(current.mutex);
  if (current.sink) {
    current.sink(record);
  } else {
    deliverByDefault(record);
  }
}

LogSink setLogSink(LogSink sink) {
  CurrentSink& current = currentSink();
  const MutexLock lock(current.mutex);
  return std::exchange(current.sink, std::move(sink));
}

std::string logTextLine(const LogRecord& record) {
  const char* padding = record.level == LogLevel::error ? " " : "  ";
  return levelName(record.level) + (padding + withoutControls(record.subsystem)) + " " +
         withoutControls(record.category) + ": " + withoutControls(record.message);
}

std::string logJSONLine(const LogRecord& record) {
  using nlohmann::ordered_json;
  const ordered_json line = {{"subsystem", record.subsystem},
                             {"category", record.category},
                             {"level", levelName(record.level)},
                             {"message", record.message}};
  return line.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

LogSink textLogSink() {
  return [](const LogRecord& record) { writeLine(logTextLine(record)); };
}

LogSink jsonLogSink() {
  return [](const LogRecord& record) { writeLine(logJSONLine(record)); };
}

}  // namespace tulo::platform
