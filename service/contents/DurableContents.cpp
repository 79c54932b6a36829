#include "service/contents/DurableContents.h"

#include <fstream>
#include <string>
#include <vector>

#include "service/contents/Blocks.h"
#include "service/replica/ContentRows.h"
#include "service/replica/Meta.h"
#include "service/replica/NodeContents.h"

namespace tulo {

namespace {

constexpr std::int64_t kBatch = 64;

std::string bootIdentifier() {
  std::ifstream file("/proc/sys/kernel/random/boot_id");
  std::string text;
  std::getline(file, text);
  return text;
}

}  // namespace

void DurableContents::start() {
  const std::string boot = bootIdentifier();
  const std::string last =
      replica_.read([](ReplicaReader& reader) { return meta::text(reader, "boot"); });
  const auto note = [&](ReplicaWriter& writer) {
    if (last != boot) {
      nodeContents::dropDoubtful(writer);
      meta::set(writer, "boot", std::string_view(boot));
    }
  };
  replica_.write(Durability::eventual, note, Room::fromReserve);
  store_.room().setUsed(
      bytesIn(replica_.read([](ReplicaReader& reader) { return contentRows::blocks(reader); })));
}

bool DurableContents::step() {
  const auto fresh =
      replica_.read([](ReplicaReader& reader) { return contentRows::notDurable(reader, kBatch); });
  if (fresh.empty()) return false;
  const std::vector<ContentId> safe = store_.makeDurable(fresh);
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    for (ContentId content : safe)
      contentRows::setDurable(writer, content);
  });
  return !safe.empty();
}

}  // namespace tulo
