// The numbers that the replica gives. Each kind is a type of its own, so that one cannot be taken
// for the other.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>

namespace tulo {

template <typename Kind>
class Id {
 public:
  constexpr Id() = default;  // none
  constexpr explicit Id(std::uint64_t number) : number_(number) {}

  constexpr std::uint64_t number() const { return number_; }

  friend constexpr auto operator<=>(const Id&, const Id&) = default;

  // As its number, in a test's message and in JSON.
  friend std::ostream& operator<<(std::ostream& stream, Id id) { return stream << id.number_; }
  template <typename Json>
  friend void to_json(Json& json, const Id& id) {
    json = id.number_;
  }
  template <typename Json>
  friend void from_json(const Json& json, Id& id) {
    json.get_to(id.number_);
  }

 private:
  std::uint64_t number_ = 0;
};

// The number of a node is its inode number: stable, never given to another node.
using NodeId = Id<struct NodeKindOfId>;
inline constexpr NodeId kNoNode{};
inline constexpr NodeId kRootNode{1};
// Cookies of a directory listing are node numbers; the lowest ones mean "." and "..".
inline constexpr NodeId kFirstNode{16};

// Names one file of contents, for one version of one node; never given to another.
using ContentId = Id<struct ContentKindOfId>;
inline constexpr ContentId kNoContent{};

}  // namespace tulo

template <typename Kind>
struct std::hash<tulo::Id<Kind>> {
  std::size_t operator()(tulo::Id<Kind> id) const noexcept {
    return std::hash<std::uint64_t>()(id.number());
  }
};
