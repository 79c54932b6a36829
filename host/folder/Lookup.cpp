#include "host/folder/Lookup.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "host/base/HostError.h"
#include "host/base/HostLog.h"

namespace tulo::host {

namespace {

std::vector<std::string> components(const std::string& path) {
  std::vector<std::string> names;
  std::size_t from = 0;
  while (from <= path.size()) {
    const std::size_t to = std::min(path.find('/', from), path.size());
    const std::string name = path.substr(from, to - from);
    if (name == "..") throw BadRequest("the path " + inQuotes(path) + " contains \"..\"");
    if (!name.empty() && name != ".") names.push_back(name);
    from = to + 1;
  }
  return names;
}

}  // namespace

void notFound(const std::string& ulid) {
  throw OperationError(kind::notFound, "there is no item " + inQuotes(ulid));
}

std::optional<Node> Lookup::find(const std::string& ulid) {
  const auto node = index_.nodes().node(ulid);
  return node ? tree_.refresh(*node) : std::nullopt;
}

Node Lookup::require(const std::string& ulid, bool isFolder) {
  auto node = find(ulid);
  if (!node || node->isFolder != isFolder) notFound(ulid);
  return *std::move(node);
}

Place Lookup::requirePlace(const std::string& ulid) {
  FileDescriptor folder = places_.open(ulid);
  if (!folder) {
    // It may just have been moved by another program.
    require(ulid, true);
    folder = places_.open(ulid);
  }
  if (!folder) notFound(ulid);
  return {ulid, std::move(folder)};
}

Node Lookup::requireAtDiskPath(const std::string& path, const std::string& root) {
  std::optional<Node> node;
  std::string parent(rootUlid);
  for (const std::string& name : components(path)) {
    tree_.reconcileEntry(parent, name);
    tree_.settle();
    node = index_.nodes().child(parent, name);
    if (!node) break;
    parent = node->ulid;
  }
  if (!node) {
    throw OperationError(kind::notFound, "there is no " + inQuotes(path) + " in " + inQuotes(root));
  }
  return *std::move(node);
}

}  // namespace tulo::host
