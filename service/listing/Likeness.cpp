#include "service/listing/Likeness.h"

#include <sys/stat.h>

#include <chrono>

#include "service/base/Time.h"

namespace tulo {

namespace {

// From the end of the second in which a file was written until a listing that shows another one in
// its place has come, however busy both sides are.
constexpr std::chrono::seconds kSettled{5};

// When the bytes here were those of the host, at the latest.
WallSeconds takenAt(const ContentStore& store, ContentId content) {
  struct stat status = {};
  if (::stat(store.path(content).c_str(), &status) != 0) return {};
  return WallSeconds(std::chrono::seconds(status.st_ctim.tv_sec));
}

// Whether whoever wrote the item anew afterwards would have given it another time.
bool wasSettled(const Node& node, const ItemRecord& item, const ContentStore& store) {
  if (node.content != kNoContent) return takenAt(store, node.content) > item.modified;
  return secondsNow() > item.modified + kSettled;
}

}  // namespace

Likeness likenessOf(const Node& node, const ItemRecord& item, const ContentStore& store) {
  if (node.kind != item.kind) return Likeness::other;
  if (node.kind == NodeKind::folder) return Likeness::same;
  if (node.size != item.size || node.modified.whole != item.modified) return Likeness::other;
  // There is only one that is empty.
  if (node.size == 0 || wasSettled(node, item, store)) return Likeness::same;
  return Likeness::possible;
}

}  // namespace tulo
