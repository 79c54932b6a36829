// What changes of the tree need of the rest of the service, and the few steps that all of them
// share.
//
// Lifetime: what it names outlives every edit.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "service/edits/LocalFiles.h"
#include "service/edits/LocalNames.h"
#include "service/replica/ContentStore.h"
#include "service/replica/Replica.h"

namespace tulo {

struct EditParts {
  Replica& replica;
  LocalFiles& files;
  ContentStore& store;
  LocalNames localNames;
  // Called on a program's thread that is about to wait for the disk.
  std::function<void()> beforeWaiting;
};

namespace edits {

// When a change that is made now is due.
WallTime due(const EditParts& parts);
// The provider's name for what a program gives the name in the folder: the same, but where the
// host still has something there that the mount had to spell so, which was moved away or deleted
// here. Then it is to take that one's place.
std::string filenameFor(ReplicaReader& reader, const Node& folder, std::string_view name);
std::optional<Node> childOf(ReplicaWriter& writer, NodeId folder, std::string_view name);
// Something in the folder was changed: so was the folder.
void touchFolder(ReplicaWriter& writer, const EditParts& parts, NodeId folder);

}  // namespace edits

}  // namespace tulo
