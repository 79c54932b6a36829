#include "service/contents/KeptFiles.h"

#include "service/replica/KeptNodes.h"

namespace tulo {

namespace {

constexpr std::int64_t kBatch = 64;

}  // namespace

void KeptFiles::listFolders() {
  const auto folders = replica_.read(
      [](ReplicaReader& reader) { return keptNodes::unlistedFolders(reader, kBatch); });
  for (NodeId folder : folders)
    sync_.refresh(folder, [](int) {});
}

bool KeptFiles::step() {
  listFolders();
  const auto files = replica_.read(
      [this](ReplicaReader& reader) { return keptNodes::missingFiles(reader, cursor_, kBatch); });
  for (NodeId file : files) {
    if (downloads_.isFullAhead()) return false;
    cursor_ = file;
    downloads_.fetch(file, DownloadPriority::ahead, [](int) {});
  }
  if (files.empty()) cursor_ = kNoNode;
  return !files.empty();
}

}  // namespace tulo
