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

template <typename Word>
Word load(const char* bytes) {
  Word word;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

// Fewer than eight bytes in one word, together with their number: each byte is in it at least once.
std::uint64_t shortWord(const char* bytes, std::size_t count) {
  if (count >= 4) {
    const std::uint64_t last = load<std::uint32_t>(bytes + count - 4);
    return last << 32 | load<std::uint32_t>(bytes);
  }
  if (count == 0) return 0;
  const auto byte = [&](std::size_t i) { return std::uint64_t{load<std::uint8_t>(bytes + i)}; };
  return byte(0) | byte(count / 2) << 8 | byte(count - 1) << 16;
}

// The bytes eight at a time. The last word may overlap the one before it: what is done with the
// words must only depend on which bytes stand where, for texts of one length.
template <typename Visit>
void forEachWord(std::string_view text, Visit visit) {
  if (text.size() < 8) return visit(shortWord(text.data(), text.size()));
  const char* last = text.data() + text.size() - 8;
  for (const char* word = text.data(); word < last; word += 8)
    visit(load<std::uint64_t>(word));
  visit(load<std::uint64_t>(last));
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
  forEachWord(text, [&](std::uint64_t word) { seen |= word; });
  return (seen & highBits) == 0;
}

// Ignores ASCII case, which is all that can differ between the key of one name and an ASCII name,
// and nothing that can differ between two keys that were built.
bool sameWords(const char* a, const char* b) {
  return lowercasedWord(load<std::uint64_t>(a)) == lowercasedWord(load<std::uint64_t>(b));
}

bool sameKey(std::string_view a, std::string_view b) {
  const std::size_t size = a.size();
  if (size != b.size()) return false;
  if (size < 8) {
    return lowercasedWord(shortWord(a.data(), size)) == lowercasedWord(shortWord(b.data(), size));
  }
  for (std::size_t i = 0; i + 8 < size; i += 8) {
    if (!sameWords(a.data() + i, b.data() + i)) return false;
  }
  return sameWords(a.data() + size - 8, b.data() + size - 8);
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
  forEachWord(key, [&](std::uint64_t word) { hash = mixed(hash ^ lowercasedWord(word)); });
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
