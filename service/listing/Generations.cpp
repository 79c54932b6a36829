#include "service/listing/Generations.h"

#include <optional>
#include <string_view>

#include "service/replica/Meta.h"

namespace tulo {

Generations::Generations(Replica& replica, SourceWatch& source, Folders& folders)
    : replica_(replica), source_(source), folders_(folders) {
  std::int64_t generation = 1;
  std::string fingerprint;
  replica_.read([&](ReplicaReader& reader) {
    generation = meta::integer(reader, "generation");
    fingerprint = meta::text(reader, "fingerprint");
  });
  const MutexLock lock(mutex_);
  fingerprint_ = source_.fingerprint();
  const bool same = !fingerprint_.empty() && fingerprint_ == fingerprint;
  current_ = static_cast<std::uint64_t>(same ? generation : generation + 1);
}

bool Generations::check() {
  {
    const MutexLock lock(mutex_);
    std::string now = source_.fingerprint();
    if (now == fingerprint_) return false;
    fingerprint_ = std::move(now);
    ++current_;
  }
  if (committed_) committed_();
  return true;
}

ListingStamp Generations::stamp() {
  ListingStamp stamp;
  const MutexLock lock(mutex_);
  stamp.generation = current();
  if (!source_.recentlyWritten()) stamp.fingerprint = fingerprint_;
  return stamp;
}

Freshness Generations::freshness(NodeId folder, std::uint64_t listed) {
  const std::uint64_t now = current();
  const std::optional<std::uint64_t> verified = folders_.verified(folder);
  if (verified) return *verified >= now ? Freshness::current : Freshness::older;
  if (listed != now) return Freshness::unknown;
  folders_.setVerified(folder, now);
  return Freshness::current;
}

void Generations::save() {
  const std::uint64_t now = current();
  std::string fingerprint;
  {
    const MutexLock lock(mutex_);
    if (source_.recentlyWritten() || source_.fingerprint() != fingerprint_) return;
    fingerprint = fingerprint_;
  }
  const auto verified = folders_.allVerified();
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    for (const auto& [folder, generation] : verified) {
      if (generation == now) writer.setListedGeneration(folder, now);
    }
    meta::set(writer, "generation", static_cast<std::int64_t>(now));
    meta::set(writer, "fingerprint", std::string_view(fingerprint));
  });
}

}  // namespace tulo
