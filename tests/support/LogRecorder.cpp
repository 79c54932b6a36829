#include "tests/support/LogRecorder.h"

#include <utility>

#include "platform/Deployment.h"

namespace tulo::test {
namespace {

LogLine line(const char* category, const char* level, std::string message) {
  const std::string bundle(deployment::hostBundleIdentifier);
  return {bundle + ".fileprovider", category, level, std::move(message)};
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << "[" << line.subsystem << " " << line.category << " " << line.level << "] "
             << line.message;
}

LogLine extensionInfo(std::string message) {
  return line("Extension", "info", std::move(message));
}

LogLine extensionError(std::string message) {
  return line("Extension", "error", std::move(message));
}

LogLine indexInfo(std::string message) {
  return line("Index", "info", std::move(message));
}

LogLine indexError(std::string message) {
  return line("Index", "error", std::move(message));
}

LogLine enumeratorInfo(std::string message) {
  return line("Enumerator", "info", std::move(message));
}

}  // namespace tulo::test
