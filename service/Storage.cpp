#include "service/Storage.h"

#include "platform/FileProvider.h"
#include "service/base/ServiceLog.h"
#include "service/replica/LongNames.h"
#include "service/replica/Meta.h"
#include "service/replica/Recovery.h"

namespace tulo {

Storage::Storage(const std::string& directory, const std::string& shared, const CacheLimits& limits)
    : replica_(directory), store_(directory, shared, limits) {
  if (!replica_.setAside().empty()) {
    serviceLog().error("the replica was damaged and is kept as %{public}@", {replica_.setAside()});
  }
  addRoot();
  recover();
  cutNames();
}

void Storage::addRoot() {
  if (replica_.read([](ReplicaReader& reader) { return reader.entry(kRootNode); })) return;
  Node root;
  root.id = kRootNode;
  root.kind = NodeKind::folder;
  root.identifier = platform::NSFileProviderRootContainerItemIdentifier();
  root.capabilities = platform::NSFileProviderItemCapabilitiesAllowsReading |
                      platform::NSFileProviderItemCapabilitiesAllowsAddingSubItems;
  root.modified = {secondsNow(), {}};
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) { writer.insert(root); });
}

void Storage::cutNames() {
  const std::size_t count = cutLongNames(replica_, store_);
  if (count == 0) return;
  serviceLog().info("%d files whose names were too long have shorter ones now", {count});
}

void Storage::recover() {
  // Told from the replica's own state, so that a crash in between does not end it half-way.
  const bool isNew = replica_.read(
      [](ReplicaReader& reader) { return meta::integer(reader, "contents_checked") == 0; });
  if (!isNew) return;
  recovered_ = recoverContents(replica_, store_);
  replica_.write(Durability::durable,
                 [](ReplicaWriter& writer) { meta::set(writer, "contents_checked", 1); });
  if (recovered_ == 0) return;
  serviceLog().error("%d files that were not sent are in the folder %{public}@",
                     {recovered_, kRecoveryFolder});
}

}  // namespace tulo
