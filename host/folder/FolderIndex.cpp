#include "host/folder/FolderIndex.h"

#include <chrono>

namespace tulo::host {

namespace {

std::string furtherTables() {
  return std::string(NodeStore::tables) + std::string(Intents::tables);
}

FileContents contentsOf(const Node& node) {
  return {node.fingerprint.size,
          std::chrono::floor<std::chrono::seconds>(node.fingerprint.modified)};
}

}  // namespace

FolderIndex::FolderIndex(const std::string& path, const std::string& identity)
    : database_(path, furtherTables(), identity),
      rows_(database_),
      state_(database_),
      nodes_(database_),
      intents_(database_) {}

void FolderIndex::add(const Node& node, std::string_view shownName) {
  nodes_.add(node);
  if (node.isFolder) {
    rows_.addFolder(node.ulid, node.parent, shownName);
  } else {
    rows_.addFile(node.ulid, node.parent, shownName, contentsOf(node));
  }
}

void FolderIndex::place(std::string_view ulid, std::string_view parent, std::string_view diskName,
                        std::string_view shownName) {
  nodes_.place(ulid, parent, diskName);
  rows_.place(ulid, parent, shownName);
}

void FolderIndex::update(const Node& node) {
  nodes_.setFingerprint(node.ulid, node.fingerprint);
  if (!node.isFolder) rows_.setContents(node.ulid, contentsOf(node));
}

std::vector<std::string> FolderIndex::remove(std::string_view ulid) {
  std::vector<std::string> folders = rows_.remove(ulid);
  for (const std::string& folder : folders)
    nodes_.removeChildren(folder);
  nodes_.remove(ulid);
  return folders;
}

}  // namespace tulo::host
