#include "service/listing/FreeName.h"

#include "service/base/Names.h"

namespace tulo {

namespace {

constexpr unsigned kNameAttempts = 16;

}  // namespace

std::string freeName(ReplicaReader& replica, NodeId folder, const ItemRecord& item) {
  std::string name = names::shown(item.filename);
  for (unsigned attempt = 0; attempt < kNameAttempts && replica.childNamed(folder, name);
       ++attempt) {
    name = names::marked(item.filename, item.identifier, attempt);
  }
  return name;
}

}  // namespace tulo
