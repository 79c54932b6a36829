// Names that stay on this machine: what programs write for a moment only, and what desktops leave
// behind. Such files work like any other; the host never hears of them.
//
// A pattern is a name with "*" for any characters and "?" for one.
//
// Threads: immutable after construction.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tulo {

class LocalNames {
 public:
  explicit LocalNames(std::vector<std::string> patterns = defaults())
      : patterns_(std::move(patterns)) {}

  static std::vector<std::string> defaults();
  bool matches(std::string_view name) const;

 private:
  std::vector<std::string> patterns_;
};

}  // namespace tulo
