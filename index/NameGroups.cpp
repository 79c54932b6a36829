#include "index/NameGroups.h"

#include <bit>
#include <cstring>
#include <random>

#include "platform/Text.h"

namespace tulo {
namespace {

constexpr std::uint32_t noName = UINT32_MAX;
constexpr std::uint64_t everyByte = 0x0101010101010101;
constexpr std::uint64_t highBits = 0x80 * everyByte;

// Up to eight bytes; what is missing is zero.
std::uint64_t load(const char* bytes, std::size_t count) {
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, count);
  return word;
}

// Eight bytes at once, each ASCII capital letter among them made small.
std::uint64_t lowercasedWord(std::uint64_t word) {
  const std::uint64_t sevenBits = word & ~highBits;
  const std::uint64_t fromA = sevenBits + (0x80 - 'A') * everyByte;
  const std::uint64_t beyondZ = sevenBits + (0x7f - 'Z') * everyByte;
  const std::uint64_t capitals = (fromA ^ beyondZ) & ~word & highBits;
  return word | (capitals >> 2);
}

bool isASCII(std::string_view text) {
  std::uint64_t seen = 0;
  for (std::size_t i = 0; i < text.size(); i += 8) {
    seen |= load(text.data() + i, std::min<std::size_t>(8, text.size() - i));
  }
  return (seen & highBits) == 0;
}

// Ignores ASCII case, which is all that can differ between the key of one name and an ASCII name,
// and nothing that can differ between two keys that were built.
bool sameKey(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); i += 8) {
    const std::size_t count = std::min<std::size_t>(8, a.size() - i);
    if (lowercasedWord(load(a.data() + i, count)) != lowercasedWord(load(b.data() + i, count))) {
      return false;
    }
  }
  return true;
}

std::uint64_t mixed(std::uint64_t value) {
  value *= 0x9e3779b97f4a7c15;
  return value ^ (value >> 32);
}

// Differs from process to process, so that nobody who names shared files can choose names that all
// fall into one slot.
std::uint64_t seed() {
  static const std::uint64_t value = [] {
    std::random_device random;
    return (std::uint64_t{random()} << 32) | random();
  }();
  return value;
}

std::uint32_t hashOf(std::string_view key, std::uint64_t start) {
  std::uint64_t hash = start ^ key.size();
  for (std::size_t i = 0; i < key.size(); i += 8) {
    const std::size_t count = std::min<std::size_t>(8, key.size() - i);
    hash = mixed(hash ^ lowercasedWord(load(key.data() + i, count)));
  }
  return static_cast<std::uint32_t>(mixed(hash) >> 16);
}

std::string builtKey(std::string_view name) {
  return platform::text::precomposed(platform::text::lowercased(name));
}

}  // namespace

NameKey::NameKey(std::string_view name) : isBorrowed_(isASCII(name)) {
  if (!isBorrowed_) built_ = builtKey(name);
  key_ = isBorrowed_ ? name : std::string_view(built_);
}

bool NameKey::matches(std::string_view name) const {
  if (isASCII(name)) return sameKey(key_, name);
  return sameKey(key_, builtKey(name));
}

NameGroups::NameGroups(std::size_t count)
    : slots_(std::bit_ceil(count * 2 + 1), Slot{0, noName}), mask_(slots_.size() - 1) {
  keys_.reserve(count);
}

std::uint32_t NameGroups::add(std::string_view name) {
  const std::string_view key = keyOf(name);
  const auto number = static_cast<std::uint32_t>(keys_.size());
  keys_.push_back(key);
  const std::uint32_t hash = hashOf(key, seed());
  for (std::size_t i = hash & mask_;; i = (i + 1) & mask_) {
    Slot& slot = slots_[i];
    if (slot.firstOfGroup == noName) {
      slot = {hash, number};
      return number;
    }
    if (slot.hash == hash && sameKey(keys_[slot.firstOfGroup], key)) return slot.firstOfGroup;
  }
}

std::string_view NameGroups::keyOf(std::string_view name) {
  if (isASCII(name)) return name;
  return built_.emplace_back(builtKey(name));
}

}  // namespace tulo
