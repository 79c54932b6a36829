#include "service/upload/AsideName.h"

namespace tulo {

namespace {

const std::string kAside = ".exchanging-";

}  // namespace

std::string asideName(const Node& node) {
  return kAside + std::to_string(node.id.number());
}

bool isAsideName(const std::string& name) {
  return name.starts_with(kAside);
}

std::string asideKey(const std::string& name) {
  return "place before " + name;
}

}  // namespace tulo
