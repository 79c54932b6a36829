// Finds the names of a folder that clash.
//
// Two names are of one group when their keys are equal: the key of a name is its lowercase form,
// canonically composed. A folder may hold a million names and almost none of them clash, so keys of
// ASCII names are never built: they are hashed and compared in place.
//
// Threads: an instance belongs to one thread.
// Lifetime: the names are borrowed and must outlive the instance.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace tulo {

// The key of one name. Borrows the name where it is ASCII: comparisons ignore ASCII case anyway.
class NameKey {
 public:
  explicit NameKey(std::string_view name);
  NameKey(const NameKey&) = delete;
  NameKey& operator=(const NameKey&) = delete;

  bool matches(std::string_view name) const;

 private:
  std::string built_;
  std::string_view key_;
  bool isBorrowed_;
};

class NameGroups {
 public:
  // Room for `count` names, at most 2^32 - 2.
  explicit NameGroups(std::size_t count);

  // Adds a name; returns the number of the first name of its group, which is its own number (names
  // are numbered from 0 in the order in which they are added) when it is the first.
  std::uint32_t add(std::string_view name);

 private:
  struct Slot {
    std::uint32_t hash;
    std::uint32_t firstOfGroup;
  };

  std::string_view keyOf(std::string_view name);

  std::vector<Slot> slots_;
  std::size_t mask_;
  std::vector<std::string_view> keys_;
  std::deque<std::string> built_;
};

}  // namespace tulo
