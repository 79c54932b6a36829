#include "service/edits/LocalFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <utility>

#include "service/base/FaultPoints.h"
#include "service/base/ServiceLog.h"
#include "service/errors/Errno.h"
#include "service/replica/ContentRows.h"
#include "service/replica/LocalTimes.h"
#include "service/replica/NodeContents.h"

namespace tulo {

namespace {

// How long changes are gathered before their rows are brought up to date, and how many at most.
constexpr std::chrono::milliseconds kGather{50};
constexpr std::size_t kMostUnsettled = 128;

// Whether all that prepare() would note down is there already, as it is of a new file.
bool isJournaled(ReplicaReader& reader, const Node& node) {
  if (node.state != ContentState::dirty || contentRows::isDurable(reader, node.content))
    return false;
  const std::optional<Change> change = journal::find(reader, node.id);
  if (!change) return node.identifier.empty();
  return change->contents && !change->sent && !change->deleted && !change->attention &&
         !change->held && change->attempts == 0;
}

bool isNoted(const Node& node, const struct stat& status) {
  return node.size == status.st_size && node.blocks == status.st_blocks &&
         node.modified == status.st_mtim.tv_sec && node.nanoseconds == status.st_mtim.tv_nsec;
}

void noteFile(ReplicaWriter& writer, NodeId node, const struct stat& status) {
  writer.setWritten(node, status.st_size, status.st_blocks, status.st_mtim.tv_sec,
                    status.st_mtim.tv_nsec);
}

}  // namespace

MillisecondClock systemClock() {
  return [] {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
  };
}

ssize_t WritableFile::read(char* data, std::size_t size, off_t offset) {
  const std::shared_lock lock(mutex_);
  if (!file_) return -ENODATA;
  const ssize_t count = ::pread(file_.get(), data, size, offset);
  return count < 0 ? -errno : count;
}

std::optional<FileDescriptor> WritableFile::duplicateDescriptor() {
  const std::shared_lock lock(mutex_);
  if (!file_) return std::nullopt;
  return FileDescriptor(::fcntl(file_.get(), F_DUPFD_CLOEXEC, 0));
}

void WritableFile::prepare(bool keepContents) {
  Replica& replica = owner_.replica_;
  ContentId fresh = kNoContent;
  std::optional<IncomingContent> incoming;
  ContentId copied = kNoContent;
  // Were the row lost in a power cut, the changed bytes would pass for the host's.
  bool wasDurable = false;
  std::string name;
  const auto reserve = [&](ReplicaWriter& writer) {
    const std::optional<Node> node = writer.node(node_);
    if (!node) throw ContentError(ESTALE, "the file is gone");
    if (keepContents && node->state == ContentState::dataless && node->size > 0) {
      throw ContentError(EIO, "the contents to be changed are not here");
    }
    name = node->name;
    const std::optional<Change> change = journal::find(writer, node_);
    const bool sending = change && change->sent && change->sentContent == node->content;
    wasDurable =
        node->state == ContentState::downloaded && contentRows::isDurable(writer, node->content);
    fresh = node->content;
    if (node->content != kNoContent && !sending) return;
    copied = keepContents ? node->content : kNoContent;
    fresh = contentRows::reserve(writer, node_);
    incoming.emplace(owner_.store_, fresh);
  };
  // Emptying a file is one of the ways to make room.
  const Room room = keepContents ? Room::ordinary : Room::fromReserve;
  replica.write(Durability::eventual, reserve, room);
  faultPoint("write.reserved");
  if (fresh != content_ || !file_) {
    FileDescriptor file = copied != kNoContent ? owner_.store_.duplicate(copied, fresh, name)
                                               : owner_.store_.create(fresh, name);
    file_ = std::move(file);
  } else {
    file_ = owner_.store_.openWritable(fresh);
    owner_.store_.setName(fresh, name);
  }
  const Durability durability = wasDurable ? Durability::durable : Durability::eventual;
  const std::int64_t due = owner_.now() + owner_.quiet_;
  const auto note = [&](ReplicaWriter& writer) {
    const std::optional<Node> node = writer.node(node_);
    if (!node) throw ContentError(ESTALE, "the file is gone");
    nodeContents::beginChange(writer, node_, fresh);
    writer.setError(node_, "");
    if (node->parent == kNoNode) return;
    const std::optional<Change> known = journal::find(writer, node_);
    // A file that the host does not know and that has no change stays here.
    if (node->identifier.empty() && !known) return;
    Change change = journal::begin(writer, *node, due);
    change.contents = true;
    journal::put(writer, change);
  };
  replica.write(durability, note, room);
  content_ = fresh;
  writable_ = true;
  owner_.openFiles_.contentsChanged(node_);
  faultPoint("write.journaled");
}

template <typename Function>
auto WritableFile::changing(bool keepContents, const Function& function) {
  {
    const std::shared_lock lock(mutex_);
    if (writable_) {
      changed_ = true;
      return function();
    }
  }
  const std::unique_lock lock(mutex_);
  if (!writable_) prepare(keepContents);
  changed_ = true;
  return function();
}

ssize_t WritableFile::write(const char* data, std::size_t size, off_t offset) try {
  return changing(true, [&]() -> ssize_t {
    std::size_t done = 0;
    while (done < size) {
      const ssize_t count =
          ::pwrite(file_.get(), data + done, size - done, offset + static_cast<off_t>(done));
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return done > 0 ? static_cast<ssize_t>(done) : -errno;
      done += static_cast<std::size_t>(count);
    }
    faultPoint("write.written");
    return static_cast<ssize_t>(done);
  });
} catch (const std::exception& error) {
  serviceLog().error("cannot write node %d: %{public}@", {node_.number(), error.what()});
  return -errnoFor(error);
}

int WritableFile::truncate(off_t size) try {
  return changing(size != 0, [&] { return ::ftruncate(file_.get(), size) == 0 ? 0 : errno; });
} catch (const std::exception& error) {
  serviceLog().error("cannot truncate node %d: %{public}@", {node_.number(), error.what()});
  return errnoFor(error);
}

int WritableFile::allocate(int mode, off_t offset, off_t length) try {
  return changing(true,
                  [&] { return ::fallocate(file_.get(), mode, offset, length) == 0 ? 0 : errno; });
} catch (const std::exception& error) {
  serviceLog().error("cannot allocate for node %d: %{public}@", {node_.number(), error.what()});
  return errnoFor(error);
}

off_t WritableFile::seek(off_t offset, int whence) {
  const std::shared_lock lock(mutex_);
  if (!file_) return -ENXIO;
  const off_t position = ::lseek(file_.get(), offset, whence);
  return position < 0 ? -errno : position;
}

ssize_t WritableFile::copyFrom(WritableFile& source, off_t from, off_t to, std::size_t size) try {
  std::optional<FileDescriptor> input = source.duplicateDescriptor();
  if (!input) return 0;
  return changing(true, [&]() -> ssize_t {
    off64_t in = from;
    off64_t out = to;
    const ssize_t count = ::copy_file_range(input->get(), &in, file_.get(), &out, size, 0);
    return count < 0 ? -errno : count;
  });
} catch (const std::exception& error) {
  serviceLog().error("cannot copy into node %d: %{public}@", {node_.number(), error.what()});
  return -errnoFor(error);
}

int WritableFile::force(bool dataOnly) {
  const std::shared_lock lock(mutex_);
  if (!file_) return 0;
  const int result = dataOnly ? ::fdatasync(file_.get()) : ::fsync(file_.get());
  return result == 0 ? 0 : errno;
}

LocalFiles::LocalFiles(Replica& replica, ContentStore& store, OpenFiles& openFiles,
                       MillisecondClock clock, std::int64_t quietMilliseconds)
    : replica_(replica),
      store_(store),
      openFiles_(openFiles),
      clock_(std::move(clock)),
      quiet_(quietMilliseconds) {}

LocalFiles::~LocalFiles() {
  stop();
}

void LocalFiles::start() {
  const auto dirty =
      replica_.read([](ReplicaReader& reader) { return nodeContents::changed(reader); });
  if (dirty.empty()) return;
  const auto note = [&](ReplicaWriter& writer) {
    for (NodeId id : dirty) {
      const std::optional<Node> node = writer.node(id);
      struct stat status = {};
      if (!node || node->state != ContentState::dirty ||
          ::stat(store_.path(node->content).c_str(), &status) != 0 || isNoted(*node, status)) {
        continue;
      }
      noteFile(writer, id, status);
    }
  };
  replica_.write(Durability::eventual, note, Room::fromReserve);
}

void LocalFiles::stop() {
  {
    std::lock_guard lock(laterMutex_);
    stopping_ = true;
    laterChanged_.notify_all();
  }
  if (keeper_.joinable()) keeper_.join();
  catchUp();
}

// The map's lock is held.
std::shared_ptr<WritableFile> LocalFiles::slot(NodeId node) {
  std::shared_ptr<WritableFile>& slot = files_[node];
  if (!slot) slot = std::make_shared<WritableFile>(*this, node);
  return slot;
}

void LocalFiles::openNew(NodeId node, ContentId content, FileDescriptor contents) {
  auto file = std::make_shared<WritableFile>(*this, node);
  file->file_ = std::move(contents);
  file->content_ = content;
  file->writable_ = true;
  std::lock_guard lock(mutex_);
  files_[node] = std::move(file);
}

std::shared_ptr<WritableFile> LocalFiles::open(NodeId id, int& error) try {
  error = 0;
  std::shared_ptr<WritableFile> file;
  {
    std::lock_guard lock(mutex_);
    file = slot(id);
  }
  {
    const std::shared_lock lock(file->mutex_);
    if (file->file_) return file;
  }
  const std::unique_lock lock(file->mutex_);
  if (file->file_) return file;
  bool journaled = false;
  const auto node = replica_.readBriefly([&](ReplicaReader& reader) {
    std::optional<Node> row = reader.node(id);
    journaled = row && isJournaled(reader, *row);
    return row;
  });
  if (!node) {
    error = ESTALE;
    return nullptr;
  }
  if (node->content != kNoContent && node->state != ContentState::dataless) {
    file->file_ = store_.openWritable(node->content);
    file->content_ = node->content;
    file->writable_ = journaled;
  }
  return file;
} catch (const std::exception& failure) {
  serviceLog().error("cannot open node %d: %{public}@", {id.number(), failure.what()});
  error = errnoFor(failure);
  return nullptr;
}

std::shared_ptr<WritableFile> LocalFiles::find(NodeId node) const {
  std::lock_guard lock(mutex_);
  const auto found = files_.find(node);
  return found == files_.end() ? nullptr : found->second;
}

void LocalFiles::released(NodeId node) {
  std::lock_guard lock(mutex_);
  eraseUnused(node);
}

// The map's lock is held.
void LocalFiles::eraseUnused(NodeId node) {
  const auto found = files_.find(node);
  if (found == files_.end() || openFiles_.isOpen(node) || found->second->settlers_ > 0) return;
  // What is not in its row yet is still to be shown.
  if (!found->second->changed_) files_.erase(found);
}

// Keeps the one object of a node in the map, so that whoever opens the file meanwhile gets it too.
class LocalFiles::Settler {
 public:
  Settler(LocalFiles& owner, NodeId node) : owner_(owner), node_(node) {
    std::lock_guard lock(owner_.mutex_);
    file_ = owner_.slot(node);
    ++file_->settlers_;
  }
  ~Settler() {
    std::lock_guard lock(owner_.mutex_);
    --file_->settlers_;
    owner_.eraseUnused(node_);
  }
  Settler(const Settler&) = delete;
  Settler& operator=(const Settler&) = delete;
  WritableFile& file() const { return *file_; }

 private:
  LocalFiles& owner_;
  const NodeId node_;
  std::shared_ptr<WritableFile> file_;
};

// The file's lock is held.
void LocalFiles::updateRow(ReplicaWriter& writer, WritableFile& file) {
  const std::optional<Node> node = writer.node(file.node_);
  struct stat status = {};
  if (!node || node->content != file.content_ || ::fstat(file.file_.get(), &status) != 0) return;
  noteFile(writer, file.node_, status);
  contentRows::setWritten(writer, file.content_, status.st_blocks);
  store_.addUsed((status.st_blocks - node->blocks) * 512);
  localTimes::note(writer, file.node_);
  journal::postpone(writer, file.node_, clock_() + quiet_);
}

void LocalFiles::wakeKeeper() {
  if (!keeper_.joinable() && !stopping_) keeper_ = std::thread([this] { keepUp(); });
  // While it gathers it need not hear of each.
  if (std::exchange(keeperRests_, false)) laterChanged_.notify_all();
}

void LocalFiles::settleLater(NodeId node) {
  const std::shared_ptr<WritableFile> file = find(node);
  if (!file || !file->changed_) return;
  bool many = false;
  {
    std::lock_guard lock(laterMutex_);
    unsettled_.insert(node);
    many = unsettled_.size() >= kMostUnsettled;
    wakeKeeper();
  }
  if (many) catchUp();
}

void LocalFiles::nameLater(ContentId content, std::string name) {
  std::lock_guard lock(laterMutex_);
  names_[content] = std::move(name);
  wakeKeeper();
}

void LocalFiles::forgetName(ContentId content) {
  {
    std::lock_guard lock(laterMutex_);
    names_.erase(content);
  }
  store_.forgetName(content);
}

void LocalFiles::keepUp() {
  std::unique_lock lock(laterMutex_);
  while (!stopping_) {
    keeperRests_ = true;
    laterChanged_.wait(lock,
                       [this] { return stopping_ || !unsettled_.empty() || !names_.empty(); });
    keeperRests_ = false;
    // Changes come in storms; a pause lets them share a transaction.
    laterChanged_.wait_for(lock, kGather, [this] { return stopping_; });
    lock.unlock();
    catchUp();
    lock.lock();
  }
}

void LocalFiles::catchUp() {
  // In the order of their numbers: whoever locks several files locks them in the same order.
  std::set<NodeId> nodes;
  std::unordered_map<ContentId, std::string> names;
  {
    std::lock_guard lock(laterMutex_);
    nodes.swap(unsettled_);
    names.swap(names_);
  }
  for (const auto& [content, name] : names) {
    try {
      store_.setName(content, name);
    } catch (const ContentError&) {
      // The contents are gone already.
    }
  }
  std::vector<std::shared_ptr<WritableFile>> files;
  for (NodeId node : nodes) {
    if (const auto file = find(node)) files.push_back(file);
  }
  if (files.empty()) return;
  settleAll(files);
  for (NodeId node : nodes)
    released(node);
  changed();
}

void LocalFiles::settleAll(const std::vector<std::shared_ptr<WritableFile>>& files) {
  std::vector<std::shared_lock<std::shared_mutex>> locks;
  std::vector<WritableFile*> changedFiles;
  for (const auto& file : files) {
    locks.emplace_back(file->mutex_);
    if (file->writable_ && file->changed_.exchange(false)) changedFiles.push_back(file.get());
  }
  if (changedFiles.empty()) return;
  try {
    replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
      for (WritableFile* file : changedFiles)
        updateRow(writer, *file);
    });
    faultPoint("settle.committed");
  } catch (const std::exception& error) {
    serviceLog().error("cannot note the changes of %d files: %{public}@",
                       {changedFiles.size(), error.what()});
    for (WritableFile* file : changedFiles)
      file->changed_ = true;
  }
}

int LocalFiles::setModified(NodeId id, const timespec& modified) try {
  const std::shared_ptr<WritableFile> file = find(id);
  std::shared_lock<std::shared_mutex> lock;
  if (file) lock = std::shared_lock(file->mutex_);
  const bool changed = file && file->writable_ && file->changed_.exchange(false);
  ContentId dirty = kNoContent;
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    // The times of what was written last are in before those that a program sets.
    if (changed) updateRow(writer, *file);
    writer.setModified(id, modified.tv_sec, modified.tv_nsec);
    localTimes::note(writer, id);
    const std::optional<Node> node = writer.node(id);
    if (node && node->state == ContentState::dirty) dirty = node->content;
  });
  // Where a start after a crash looks for it.
  const std::array<timespec, 2> times = {modified, modified};
  if (dirty != kNoContent) {
    ::utimensat(AT_FDCWD, store_.path(dirty).c_str(), times.data(), AT_SYMLINK_NOFOLLOW);
  }
  return 0;
} catch (const std::exception& error) {
  serviceLog().error("cannot set the time of node %d: %{public}@", {id.number(), error.what()});
  return errnoFor(error);
}

int LocalFiles::settle(NodeId id) try {
  const std::shared_ptr<WritableFile> file = find(id);
  if (!file) return 0;
  bool changed = false;
  {
    const std::shared_lock lock(file->mutex_);
    changed = file->changed_.exchange(false);
    if (!changed) return 0;
    if (file->writable_) noteChange(*file);
  }
  faultPoint("settle.committed");
  this->changed();
  return 0;
} catch (const std::exception& error) {
  serviceLog().error("cannot note the change of node %d: %{public}@", {id.number(), error.what()});
  return errnoFor(error);
}

// The file's lock is held.
void LocalFiles::noteChange(WritableFile& file) try {
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) { updateRow(writer, file); });
} catch (const std::exception&) {
  file.changed_ = true;
  throw;
}

int LocalFiles::forceContents(NodeId id, bool dataOnly) {
  if (const std::shared_ptr<WritableFile> file = find(id)) return file->force(dataOnly);
  const auto node = replica_.read([&](ReplicaReader& reader) { return reader.node(id); });
  const bool local = node && node->state == ContentState::dirty && node->content != kNoContent;
  return local && !store_.makeDurable(node->content) ? EIO : 0;
}

// The bytes and the log go to the disk side by side. The log has the file's name and that its bytes
// are not the host's; how many they are, a start after a power cut sees from their file.
int LocalFiles::synchronize(NodeId id, bool dataOnly) try {
  const std::uint64_t turn = replica_.beginSynchronize();
  const int error = forceContents(id, dataOnly);
  if (error != 0) return error;
  faultPoint("fsync.data");
  replica_.endSynchronize(turn);
  settleLater(id);
  return 0;
} catch (const std::exception& error) {
  serviceLog().error("cannot force node %d to the disk: %{public}@", {id.number(), error.what()});
  return errnoFor(error);
}

void LocalFiles::overlay(Entry& entry) const {
  if (entry.kind != NodeKind::file) return;
  const std::shared_ptr<WritableFile> file = find(entry.id);
  if (!file) return;
  const std::shared_lock lock(file->mutex_);
  struct stat status = {};
  if (!file->writable_ || ::fstat(file->file_.get(), &status) != 0) return;
  entry.size = status.st_size;
  entry.blocks = status.st_blocks;
  if (!file->changed_) return;
  entry.modified = status.st_mtim.tv_sec;
  entry.nanoseconds = status.st_mtim.tv_nsec;
}

void LocalFiles::withSettled(NodeId node, Durability durability,
                             const Replica::WriteFunction& function) {
  const Settler settler(*this, node);
  WritableFile& file = settler.file();
  const std::unique_lock lock(file.mutex_);
  const auto settled = [&](ReplicaWriter& writer) {
    if (file.writable_ && file.changed_) updateRow(writer, file);
    function(writer);
  };
  // What the host has can be dropped here.
  replica_.write(durability, settled, Room::fromReserve);
  file.changed_ = false;
  file.writable_ = false;
}

void LocalFiles::contentsSent(NodeId node) {
  const std::shared_ptr<WritableFile> file = find(node);
  if (!file) return;
  const std::unique_lock lock(file->mutex_);
  file->writable_ = false;
}

}  // namespace tulo
