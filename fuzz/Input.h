// Takes the bytes of one fuzz input apart into values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace tulo::fuzz {

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : rest_(reinterpret_cast<const char*>(data), size) {}

  bool isEmpty() const { return rest_.empty(); }

  // 0 at the end.
  std::uint8_t byte() {
    if (rest_.empty()) return 0;
    const auto value = static_cast<std::uint8_t>(rest_.front());
    rest_.remove_prefix(1);
    return value;
  }

  // As many bytes as the next byte says, or what is left.
  std::string text() {
    const std::size_t length = byte();
    const std::string value(rest_.substr(0, length));
    rest_.remove_prefix(value.size());
    return value;
  }

  std::int64_t integer() {
    std::uint64_t value = 0;
    for (int i = 0; i < 8; ++i)
      value = value << 8 | byte();
    return static_cast<std::int64_t>(value);
  }

  std::string_view rest() const { return rest_; }

 private:
  std::string_view rest_;
};

// A promise of the code under test; a broken one is a finding.
inline void require(bool isKept, const char* promise) {
  if (isKept) return;
  std::fprintf(stderr, "broken: %s\n", promise);
  std::abort();
}

}  // namespace tulo::fuzz
