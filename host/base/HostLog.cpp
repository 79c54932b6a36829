#include "host/base/HostLog.h"

#include <array>
#include <cstdio>

#include "platform/Deployment.h"

namespace tulo::host {

HostLog::HostLog(bool requests)
    : log_(std::string(deployment::hostBundleIdentifier) + ".host", "Host"), requests_(requests) {}

namespace {

// The length of the valid UTF-8 sequence at the front of `text`; 0 if there is none. Overlong forms
// and surrogates are told apart only by their lead bytes: enough for text that people read.
std::size_t sequenceLength(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text.front());
  std::size_t length = 0;
  if (lead < 0x80) length = 1;
  if (lead >= 0xC2 && lead < 0xE0) length = 2;
  if (lead >= 0xE0 && lead < 0xF0) length = 3;
  if (lead >= 0xF0 && lead < 0xF5) length = 4;
  if (length > text.size()) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) return 0;
  }
  return length;
}

bool isPlain(std::string_view sequence) {
  const auto byte = static_cast<unsigned char>(sequence.front());
  return sequence.size() > 1 || (byte >= 0x20 && byte != 0x7F);
}

}  // namespace

std::string inQuotes(std::string_view text) {
  std::string result = "\"";
  while (!text.empty()) {
    const std::size_t length = sequenceLength(text);
    if (length > 0 && isPlain(text.substr(0, length))) {
      result += text.substr(0, length);
    } else {
      std::array<char, 5> escape{};
      std::snprintf(escape.data(), escape.size(), "\\x%02X",
                    static_cast<unsigned>(static_cast<unsigned char>(text.front())));
      result += escape.data();
    }
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return result + "\"";
}

}  // namespace tulo::host
