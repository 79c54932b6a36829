#include "service/contents/Contents.h"

#include <cerrno>
#include <utility>

#include "service/base/ServiceLog.h"
#include "service/replica/NodeContents.h"

namespace tulo {

Contents::Contents(Replica& replica, ExtensionPointer extension, Sync& sync, Notifier& notifier,
                   OpenFiles& openFiles, ContentStore& store, DownloadPolicy& policy)
    : replica_(replica),
      openFiles_(openFiles),
      notifier_(notifier),
      use_(replica),
      leftOvers_(replica, openFiles, store),
      room_(replica, openFiles, notifier, store, use_, leftOvers_),
      durable_(replica, store),
      opener_(replica, sync, openFiles, store, use_),
      downloads_(
          std::make_shared<Downloads>(replica, std::move(extension), sync, notifier, store, room_)),
      openers_(std::make_shared<Openers>(replica, sync, notifier, policy, opener_, *downloads_)),
      kept_(replica, sync, *downloads_) {}

void Contents::stop() {
  openers_->stop();
  downloads_->stop();
}

void Contents::cannotRead(const OpenFile& file, const ContentError& error) {
  serviceLog().error("cannot read node %d: %{public}@", {file.node().number(), error.what()});
  // Anything else says nothing of the file: there may be too many open ones.
  if (error.number() != ENOENT && error.number() != EIO) return;
  const ExclusiveLock gate(openFiles_.gate());
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    const std::optional<Node> node = writer.node(file.node());
    // What was changed here exists nowhere else.
    const bool fetched = node && node->state == ContentState::downloaded;
    if (fetched && node->content == file.content()) nodeContents::drop(writer, node->id);
  });
  notifier_.queue({attributesChanged(file.node())});
}

Contents::Statistics Contents::statistics() const {
  return {downloads_->transfers(), downloads_->fetched(), downloads_->failed(), openers_->denied(),
          room_.evicted()};
}

}  // namespace tulo
