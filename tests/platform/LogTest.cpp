#include "platform/Log.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/linux/LogDelivery.h"
#include "platform/linux/LogSink.h"

namespace tulo::platform {
namespace {

class LogSinkTest : public testing::Test {
 protected:
  void record() {
    setLogSink([this](const LogRecord& entry) { records_.push_back(entry); });
  }
  void TearDown() override { setLogSink({}); }

  std::vector<LogRecord> records_;
  const Log log_{"app.example", "Area"};
};

TEST_F(LogSinkTest, ReceivesSubsystemCategoryLevelAndMessage) {
  record();
  log_.info("a %d", {1});
  log_.error("b");
  ASSERT_EQ(records_.size(), 2U);
  EXPECT_EQ(records_[0].subsystem, "app.example");
  EXPECT_EQ(records_[0].category, "Area");
  EXPECT_EQ(records_[0].level, LogLevel::info);
  EXPECT_EQ(records_[0].message, "a 1");
  EXPECT_EQ(records_[1].level, LogLevel::error);
}

TEST_F(LogSinkTest, ReplacingGivesTheOneBefore) {
  EXPECT_FALSE(setLogSink([](const LogRecord&) {}));
  EXPECT_TRUE(setLogSink({}));
  EXPECT_FALSE(setLogSink({}));
}

TEST_F(LogSinkTest, LoggingNeitherThrowsNorChangesTheErrorNumber) {
  setLogSink([](const LogRecord&) {
    errno = EIO;
    throw std::runtime_error("broken sink");
  });
  errno = ENOENT;
  EXPECT_NO_THROW(log_.error("message"));
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(LogSinkTest, ASinkThatLogsIsNotCalledForIt) {
  int calls = 0;
  setLogSink([&](const LogRecord&) {
    ++calls;
    log_.info("from the sink");
  });
  log_.info("first");
  log_.info("second");
  EXPECT_EQ(calls, 2);
}

TEST_F(LogSinkTest, ReceivesOneRecordAtATime) {
  record();
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([this] {
      for (int line = 0; line < 500; ++line)
        log_.info("line %d", {line});
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(records_.size(), 2000U);
}

TEST(LogTextLineTest, IsReadable) {
  EXPECT_EQ(logTextLine({"app.example", "Area", LogLevel::info, "a message"}),
            "info  app.example Area: a message");
  EXPECT_EQ(logTextLine({"app.example", "Area", LogLevel::error, "a message"}),
            "error app.example Area: a message");
}

TEST(LogTextLineTest, IsOneLineWhateverTheMessage) {
  EXPECT_EQ(logTextLine({"s", "c", LogLevel::info, "a\nb\r\t\x1B[31m\x7F\xC2\x9B\xC3\xA9\xFF"}),
            "info  s c: a\\nb\\r\\t\\x1b[31m\\x7f\\x9b\xC3\xA9\xFF");
}

TEST(LogJSONLineTest, HasTheFieldsInOrderAndReplacesWhatIsNotUTF8) {
  EXPECT_EQ(logJSONLine({"app.example", "Area", LogLevel::error, "a \"b\"\n\xFF/"}),
            "{\"subsystem\":\"app.example\",\"category\":\"Area\",\"level\":\"error\","
            "\"message\":\"a \\\"b\\\"\\n\uFFFD/\"}");
}

// Standard error for the length of a call, read back.
std::string standardErrorOf(const std::function<void()>& call) {
  testing::internal::CaptureStderr();
  call();
  return testing::internal::GetCapturedStderr();
}

TEST_F(LogSinkTest, TheSinksWriteLinesToStandardError) {
  EXPECT_EQ(standardErrorOf([this] { log_.info("by default"); }),
            "info  app.example Area: by default\n");
  setLogSink(textLogSink());
  EXPECT_EQ(standardErrorOf([this] { log_.error("x"); }), "error app.example Area: x\n");
  setLogSink(jsonLogSink());
  EXPECT_EQ(standardErrorOf([this] { log_.info("x"); }),
            "{\"subsystem\":\"app.example\",\"category\":\"Area\",\"level\":\"info\","
            "\"message\":\"x\"}\n");
}

}  // namespace
}  // namespace tulo::platform
