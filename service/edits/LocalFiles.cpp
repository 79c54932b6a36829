#include "service/edits/LocalFiles.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>

#include "service/base/FaultPoints.h"
#include "service/base/ServiceLog.h"
#include "service/edits/FileRows.h"
#include "service/errors/Errno.h"
#include "service/replica/LocalTimes.h"

namespace tulo {

LocalFiles::LocalFiles(const FileParts& parts)
    : parts_(parts), files_(parts_), keeper_(files_, parts_.store, [this] { changed(); }) {}

void LocalFiles::start() {
  fileRows::noteAfterRestart(parts_);
}

OpenedFile LocalFiles::open(NodeId id) {
  OpenedFile opened = tryOpen(id);
  // Nobody would ever let go of it.
  if (!opened.file) released(id);
  return opened;
}

OpenedFile LocalFiles::tryOpen(NodeId id) try {
  std::shared_ptr<WritableFile> file = files_.get(id);
  const int error = file->open();
  if (error != 0) return {nullptr, error};
  return {std::move(file)};
} catch (const std::exception& error) {
  serviceLog().error("cannot open node %d: %{public}@", {id.number(), error.what()});
  return {nullptr, errnoFor(error)};
}

void LocalFiles::openNew(NodeId node, ContentId content, FileDescriptor contents) {
  files_.add(node, std::make_shared<WritableFile>(parts_, node, content, std::move(contents)));
}

int LocalFiles::settle(NodeId id) try {
  const std::shared_ptr<WritableFile> file = find(id);
  if (!file || !file->settle()) return 0;
  faultPoint("settle.committed");
  changed();
  return 0;
} catch (const std::exception& error) {
  serviceLog().error("cannot note the change of node %d: %{public}@", {id.number(), error.what()});
  return errnoFor(error);
}

int LocalFiles::setModified(NodeId id, const timespec& modified) try {
  ContentId dirty = kNoContent;
  const auto set = [&](ReplicaWriter& writer) {
    writer.setModified(id, FileTime::of(modified));
    localTimes::note(writer, id);
    const std::optional<Node> node = writer.node(id);
    if (node && node->state == ContentState::dirty) dirty = node->content;
  };
  // The times of what was written last are in before those that a program sets.
  if (const std::shared_ptr<WritableFile> file = find(id)) {
    file->settleAnd(set);
  } else {
    parts_.replica.write(Durability::eventual, set);
  }
  // Where a start after a crash looks for it.
  const std::array<timespec, 2> times = {modified, modified};
  if (dirty != kNoContent) {
    ::utimensat(AT_FDCWD, parts_.store.path(dirty).c_str(), times.data(), AT_SYMLINK_NOFOLLOW);
  }
  return 0;
} catch (const std::exception& error) {
  serviceLog().error("cannot set the time of node %d: %{public}@", {id.number(), error.what()});
  return errnoFor(error);
}

int LocalFiles::forceContents(NodeId id, bool dataOnly) {
  if (const std::shared_ptr<WritableFile> file = find(id)) return file->force(dataOnly);
  const auto node = parts_.replica.read([&](ReplicaReader& reader) { return reader.node(id); });
  const bool local = node && node->state == ContentState::dirty && node->content != kNoContent;
  if (!local) return 0;
  const int error = parts_.store.force(node->content);
  return error == 0 || isShortOfDescriptors(error) ? error : EIO;
}

// The bytes and the log go to the disk side by side. The log has the file's name and that its bytes
// are not the host's; how many they are, a start after a power cut sees from their file.
int LocalFiles::synchronize(NodeId id, bool dataOnly) try {
  const std::uint64_t turn = parts_.replica.beginSynchronize();
  const int error = forceContents(id, dataOnly);
  if (error != 0) return error;
  faultPoint("fsync.data");
  parts_.replica.endSynchronize(turn);
  settleLater(id);
  return 0;
} catch (const std::exception& error) {
  serviceLog().error("cannot force node %d to the disk: %{public}@", {id.number(), error.what()});
  return errnoFor(error);
}

bool LocalFiles::isBeingWritten(NodeId node) const {
  if (!parts_.openFiles.isOpenForWriting(node)) return false;
  const std::shared_ptr<WritableFile> file = find(node);
  return !file || parts_.quiet.now() < file->lastWritten() + parts_.quiet.lengthWhileOpen();
}

void LocalFiles::overlay(Entry& entry) const {
  if (entry.kind != NodeKind::file) return;
  const std::shared_ptr<WritableFile> file = find(entry.id);
  if (file && file->overlay(entry)) return;
  // Its row may have been read before it was brought up to date. Contents that nobody has changed
  // here change with news to the kernel, which come later than this answer.
  if (entry.state == ContentState::dirty) fileRows::showCurrent(entry, parts_.replica);
}

void LocalFiles::withSettled(NodeId node, Durability durability,
                             const Replica::WriteFunction& function) {
  const WritableFiles::Hold hold(files_, node);
  hold.file().withSettled(durability, function);
}

}  // namespace tulo
