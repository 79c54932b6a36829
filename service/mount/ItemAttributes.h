// The extended attributes that an item is shown with: user.tulo.* Private to the mount.
//
// Threads: of one thread at a time.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/replica/Change.h"
#include "service/replica/ReplicaReader.h"

namespace tulo {

class ItemAttributes {
 public:
  // `change`: what the host has not heard of yet.
  ItemAttributes(Node node, std::optional<Change> change);
  // Nothing when there is no such node.
  static std::optional<ItemAttributes> of(ReplicaReader& reader, NodeId node);

  std::vector<std::string> names() const;
  // Nothing when the item has no such attribute.
  std::optional<std::string> value(std::string_view name, std::string_view domain) const;

 private:
  bool isLocal() const;
  const char* stateName() const;
  std::optional<std::string> error() const;
  std::optional<std::string> pending() const;

  Node node_;
  std::optional<Change> change_;
};

}  // namespace tulo
