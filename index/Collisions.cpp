#include "index/Collisions.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "index/NameGroups.h"
#include "platform/Text.h"

namespace tulo {
namespace {

// A name that is not the first of its group; both by the numbers that NameGroups gave them.
struct Clash {
  std::uint32_t first;
  std::uint32_t number;

  auto operator<=>(const Clash&) const = default;
};

std::vector<Clash> clashes(std::span<const std::string_view> reserved,
                           std::span<const Collisions::Entry> entries) {
  NameGroups groups(reserved.size() + entries.size());
  for (const auto name : reserved)
    groups.add(name);
  std::vector<Clash> found;
  auto number = static_cast<std::uint32_t>(reserved.size());
  for (const auto& entry : entries) {
    const std::uint32_t first = groups.add(entry.name);
    if (first != number) found.push_back({first, number});
    ++number;
  }
  std::sort(found.begin(), found.end());
  return found;
}

// Collects the marked entries group by group.
class Marker {
 public:
  Marker(std::size_t reservedCount, std::span<const Collisions::Entry> entries)
      : reservedCount_(reservedCount), entries_(entries) {}

  // `group` is not empty and holds clashes with one and the same first name.
  void mark(std::span<const Clash> group) {
    const std::uint32_t first = group.front().first;
    if (first < reservedCount_) {  // folders are numbered first: one of them has the name
      for (const Clash& clash : group)
        markEntry(position(clash.number));
      return;
    }
    std::size_t keeper = position(first);
    for (const Clash& clash : group) {
      std::size_t loser = position(clash.number);
      if (entries_[loser].ulid < entries_[keeper].ulid) std::swap(loser, keeper);
      markEntry(loser);
    }
  }

  std::vector<Collisions::Marked> take() { return std::move(marked_); }

 private:
  std::size_t position(std::uint32_t number) const { return number - reservedCount_; }

  void markEntry(std::size_t position) {
    const auto& entry = entries_[position];
    marked_.push_back({position, Collisions::markedName(entry.name, entry.ulid)});
  }

  std::size_t reservedCount_;
  std::span<const Collisions::Entry> entries_;
  std::vector<Collisions::Marked> marked_;
};

}  // namespace

std::string Collisions::markedName(std::string_view name, std::string_view ulid) {
  const std::string_view tag = platform::text::suffix(ulid, tagLength);
  const auto dot = platform::text::offsetOfLastDot(name);
  const std::size_t baseLength = dot.value_or(0) == 0 ? name.size() : *dot;
  std::string marked;
  marked.reserve(name.size() + tag.size() + 3);
  return marked.append(name.substr(0, baseLength))
      .append(" (")
      .append(tag)
      .append(")")
      .append(name.substr(baseLength));
}

std::vector<Collisions::Marked> Collisions::marked(std::span<const std::string_view> reserved,
                                                   std::span<const Entry> entries) {
  const std::vector<Clash> found = clashes(reserved, entries);
  Marker marker(reserved.size(), entries);
  for (auto begin = found.begin(); begin != found.end();) {
    const auto end = std::find_if(begin, found.end(),
                                  [&](const Clash& clash) { return clash.first != begin->first; });
    marker.mark({begin, end});
    begin = end;
  }
  return marker.take();
}

std::vector<std::string> Collisions::resolve(std::span<const std::string_view> reserved,
                                             std::span<const Entry> entries) {
  std::vector<std::string> names;
  names.reserve(entries.size());
  for (const auto& entry : entries)
    names.emplace_back(entry.name);
  for (auto& [position, name] : marked(reserved, entries))
    names[position] = std::move(name);
  return names;
}

std::string Collisions::displayName(std::span<const std::string_view> reserved,
                                    std::span<const Entry> entries, std::size_t position) {
  const Entry& entry = entries[position];
  const NameKey key(entry.name);
  const auto matches = [&](std::string_view name) { return key.matches(name); };
  bool isMarked = std::any_of(reserved.begin(), reserved.end(), matches);
  for (std::size_t i = 0; i < entries.size() && !isMarked; ++i) {
    const int order = entries[i].ulid.compare(entry.ulid);
    isMarked = (order < 0 || (order == 0 && i < position)) && matches(entries[i].name);
  }
  return isMarked ? markedName(entry.name, entry.ulid) : std::string(entry.name);
}

}  // namespace tulo
