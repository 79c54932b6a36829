#include "tests/support/CollisionsModel.h"

#include <algorithm>

namespace tulo::test {
namespace {

std::string keyOf(std::string name) {
  for (char& c : name)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return name;
}

std::string marked(const std::string& name, const std::string& ulid) {
  const std::string tag =
      " (" + ulid.substr(ulid.size() - std::min<std::size_t>(6, ulid.size())) + ")";
  const auto dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0) return name + tag;
  return name.substr(0, dot) + tag + name.substr(dot);
}

// Whether another entry takes its turn before this one.
bool isBefore(const std::vector<ModelEntry>& entries, std::size_t other, std::size_t one) {
  const int order = entries[other].first.compare(entries[one].first);
  return order < 0 || (order == 0 && other < one);
}

}  // namespace

std::vector<std::string> modelOfResolve(const std::vector<std::string>& reserved,
                                        const std::vector<ModelEntry>& entries) {
  std::vector<std::string> names;
  for (std::size_t one = 0; one < entries.size(); ++one) {
    const auto& [ulid, name] = entries[one];
    bool isTaken = false;
    for (const std::string& folder : reserved)
      isTaken = isTaken || keyOf(folder) == keyOf(name);
    for (std::size_t other = 0; other < entries.size(); ++other)
      isTaken = isTaken || (other != one && isBefore(entries, other, one) &&
                            keyOf(entries[other].second) == keyOf(name));
    names.push_back(isTaken ? marked(name, ulid) : name);
  }
  return names;
}

}  // namespace tulo::test
