#include "host/index/Ulid.h"

#include <sys/random.h>

#include <algorithm>
#include <random>

namespace tulo::host {

namespace {

constexpr std::string_view alphabet = "0123456789ABCDEFGHJKMNPQRSTVWXYZ";
constexpr std::size_t textLength = 26;
constexpr std::size_t timeBytes = 6;

UlidSource::Time systemTime() {
  return std::chrono::time_point_cast<std::chrono::milliseconds>(std::chrono::system_clock::now());
}

void fillRandom(std::uint8_t* to, std::size_t count) {
  if (::getrandom(to, count, 0) == static_cast<ssize_t>(count)) return;
  std::random_device device;
  std::generate_n(to, count, [&] { return static_cast<std::uint8_t>(device()); });
}

UlidBytes fresh(UlidSource::Time now) {
  const auto milliseconds = static_cast<std::uint64_t>(now.time_since_epoch().count());
  UlidBytes bytes;
  for (std::size_t i = 0; i < timeBytes; ++i) {
    bytes[i] = static_cast<std::uint8_t>(milliseconds >> (8 * (timeBytes - 1 - i)));
  }
  fillRandom(bytes.data() + timeBytes, bytes.size() - timeBytes);
  return bytes;
}

void increment(UlidBytes& bytes) {
  for (auto byte = bytes.rbegin(); byte != bytes.rend() && ++*byte == 0; ++byte) {
  }
}

// A later one whose random part is its own. What was counted up from `bytes` may have been given,
// too: to something that is gone, or that nobody had the time to note.
UlidBytes beyond(const UlidBytes& bytes) {
  UlidBytes later = bytes;
  auto byte = later.rend() - timeBytes;
  while (byte != later.rend() && ++*byte == 0)
    ++byte;
  if (byte == later.rend()) return bytes;
  fillRandom(later.data() + timeBytes, later.size() - timeBytes);
  return later;
}

}  // namespace

std::string ulidText(const UlidBytes& bytes) {
  // 26 characters hold 130 bits: the first two are always zero.
  std::string text(textLength, '0');
  for (std::size_t i = 0; i < textLength; ++i) {
    unsigned value = 0;
    for (std::size_t bit = 5 * i; bit < 5 * i + 5; ++bit) {
      const bool set = bit >= 2 && (bytes[(bit - 2) / 8] >> (7 - (bit - 2) % 8) & 1) != 0;
      value = value << 1 | static_cast<unsigned>(set);
    }
    text[i] = alphabet[value];
  }
  return text;
}

std::optional<UlidBytes> ulidBytes(std::string_view text) {
  if (text.size() != textLength || text.front() > '7') return std::nullopt;
  UlidBytes bytes{};
  for (std::size_t i = 0; i < textLength; ++i) {
    const auto value = alphabet.find(text[i]);
    if (value == std::string_view::npos) return std::nullopt;
    for (std::size_t bit = 0; bit < 5; ++bit) {
      const std::size_t position = 5 * i + bit;
      if (position < 2 || (value >> (4 - bit) & 1) == 0) continue;
      bytes[(position - 2) / 8] |= static_cast<std::uint8_t>(1U << (7 - (position - 2) % 8));
    }
  }
  return bytes;
}

UlidSource::UlidSource(Clock clock) : clock_(clock ? std::move(clock) : systemTime) {}

std::string UlidSource::next() {
  const MutexLock lock(mutex_);
  const UlidBytes candidate = fresh(clock_());
  // Within one millisecond, and after a step back of the clock, counting up keeps the order.
  if (std::equal(candidate.begin(), candidate.begin() + timeBytes, last_.begin()) ||
      candidate < last_) {
    increment(last_);
  } else {
    last_ = candidate;
  }
  return ulidText(last_);
}

void UlidSource::follow(std::string_view ulid) {
  const MutexLock lock(mutex_);
  if (const auto bytes = ulidBytes(ulid); bytes && *bytes > last_) last_ = beyond(*bytes);
}

}  // namespace tulo::host
