#include "service/edits/WritableFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <deque>
#include <utility>

#include "service/base/FaultPoints.h"
#include "service/base/ServiceLog.h"
#include "service/edits/FileRows.h"
#include "service/edits/FirstWrite.h"
#include "service/errors/ContentError.h"
#include "service/errors/Errno.h"

namespace tulo {

WritableFile::WritableFile(const FileParts& parts, NodeId node, ContentId content,
                           FileDescriptor contents)
    : parts_(parts),
      node_(node),
      file_(std::move(contents)),
      content_(content),
      writable_(true),
      marks_(parts.quiet.now()) {}

int WritableFile::open() {
  {
    const SharedLock lock(mutex_);
    if (isOwn()) return 0;
  }
  const ExclusiveLock lock(mutex_);
  return isOwn() ? 0 : openCurrent();
}

int WritableFile::openCurrent() {
  bool journaled = false;
  const auto node = parts_.replica.readBriefly([&](ReplicaReader& reader) {
    std::optional<Node> row = reader.node(node_);
    journaled = row && FirstWrite::isDone(reader, *row);
    return row;
  });
  // A number that was left behind keeps what it has.
  if (!node) return file_ ? 0 : ESTALE;
  const bool isHere = node->content != kNoContent && node->state != ContentState::dataless;
  if (!isHere) {
    file_.reset();
  } else if (!file_ || content_ != node->content) {
    file_ = parts_.store.openWritable(node->content);
  }
  content_ = isHere ? node->content : kNoContent;
  writable_ = isHere && journaled;
  return 0;
}

ssize_t WritableFile::read(char* data, std::size_t size, off_t offset) {
  const SharedLock lock(mutex_);
  if (!isOwn()) return -ENODATA;
  const ssize_t count = ::pread(file_.get(), data, size, offset);
  return count < 0 ? -errno : count;
}

std::optional<FileDescriptor> WritableFile::duplicateDescriptor() {
  const SharedLock lock(mutex_);
  if (!file_) return std::nullopt;
  FileDescriptor duplicate(::fcntl(file_.get(), F_DUPFD_CLOEXEC, 0));
  if (!duplicate) throw ContentError(errno, "a file cannot be opened a second time");
  return duplicate;
}

void WritableFile::prepare(bool keepContents) {
  FirstWrite first(parts_, node_, keepContents);
  first.reserve();
  FileDescriptor contents = first.openContents();
  first.note();
  file_ = std::move(contents);
  content_ = first.content();
  writable_ = true;
  parts_.openFiles.contentsChanged(node_);
  faultPoint("write.journaled");
}

template <typename Function>
auto WritableFile::changing(bool keepContents, const Function& function) {
  const WallTime now = parts_.quiet.now();
  {
    const SharedLock lock(mutex_);
    if (writable_) {
      const WriteMarks::Write write(marks_, now);
      faultPoint("write.begins");
      return function(file_.get());
    }
  }
  const ExclusiveLock lock(mutex_);
  if (!writable_) prepare(keepContents);
  const WriteMarks::Write write(marks_, now);
  return function(file_.get());
}

ssize_t WritableFile::write(const char* data, std::size_t size, off_t offset) try {
  return changing(true, [&](int file) -> ssize_t {
    std::size_t done = 0;
    while (done < size) {
      const ssize_t count =
          ::pwrite(file, data + done, size - done, offset + static_cast<off_t>(done));
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
  return changing(size != 0, [&](int file) { return ::ftruncate(file, size) == 0 ? 0 : errno; });
} catch (const std::exception& error) {
  serviceLog().error("cannot truncate node %d: %{public}@", {node_.number(), error.what()});
  return errnoFor(error);
}

int WritableFile::allocate(int mode, off_t offset, off_t length) try {
  return changing(
      true, [&](int file) { return ::fallocate(file, mode, offset, length) == 0 ? 0 : errno; });
} catch (const std::exception& error) {
  serviceLog().error("cannot allocate for node %d: %{public}@", {node_.number(), error.what()});
  return errnoFor(error);
}

off_t WritableFile::seek(off_t offset, int whence) {
  const SharedLock lock(mutex_);
  if (!file_) return -ENXIO;
  const off_t position = ::lseek(file_.get(), offset, whence);
  return position < 0 ? -errno : position;
}

ssize_t WritableFile::copyFrom(WritableFile& source, off_t from, off_t to, std::size_t size) try {
  std::optional<FileDescriptor> input = source.duplicateDescriptor();
  if (!input) return 0;
  return changing(true, [&](int file) -> ssize_t {
    off64_t in = from;
    off64_t out = to;
    const ssize_t count = ::copy_file_range(input->get(), &in, file, &out, size, 0);
    return count < 0 ? -errno : count;
  });
} catch (const std::exception& error) {
  serviceLog().error("cannot copy into node %d: %{public}@", {node_.number(), error.what()});
  return -errnoFor(error);
}

int WritableFile::force(bool dataOnly) {
  const SharedLock lock(mutex_);
  if (!file_) return 0;
  const int result = dataOnly ? ::fdatasync(file_.get()) : ::fsync(file_.get());
  return result == 0 ? 0 : errno;
}

bool WritableFile::overlay(Entry& entry) {
  const SharedLock lock(mutex_);
  struct stat status = {};
  if (!writable_ || ::fstat(file_.get(), &status) != 0) return false;
  entry.size = status.st_size;
  entry.blocks = status.st_blocks;
  if (isChanged()) entry.modified = FileTime::of(status.st_mtim);
  return true;
}

void WritableFile::updateRow(ReplicaWriter& writer) {
  struct stat status = {};
  if (::fstat(file_.get(), &status) != 0) return;
  fileRows::noteWritten(writer, parts_, node_, content_, status);
}

bool WritableFile::settle() {
  const SharedLock lock(mutex_);
  if (!writable_) return false;
  WriteMarks::Settling settling(marks_);
  if (!settling.isWanted()) return false;
  parts_.replica.write(Durability::eventual, [this](ReplicaWriter& writer) TULO_REQUIRES_SHARED(
                                                 mutex_) { updateRow(writer); });
  settling.done();
  return true;
}

void WritableFile::settleAnd(const Replica::WriteFunction& function) {
  const SharedLock lock(mutex_);
  WriteMarks::Settling settling(marks_);
  parts_.replica.write(Durability::eventual,
                       [&](ReplicaWriter& writer) TULO_REQUIRES_SHARED(mutex_) {
                         if (writable_ && settling.isWanted()) updateRow(writer);
                         function(writer);
                       });
  settling.done();
}

void WritableFile::withSettled(Durability durability, const Replica::WriteFunction& function) {
  const ExclusiveLock lock(mutex_);
  WriteMarks::Settling settling(marks_);
  const auto settled = [&](ReplicaWriter& writer) TULO_REQUIRES(mutex_) {
    if (writable_ && settling.isWanted()) updateRow(writer);
    function(writer);
  };
  // What the host has can be dropped here.
  parts_.replica.write(durability, settled, Room::fromReserve);
  settling.done();
  writable_ = false;
}

// The compiler cannot follow locks in a container.
void WritableFile::settleTogether(const std::vector<std::shared_ptr<WritableFile>>& files)
    TULO_NO_THREAD_SAFETY_ANALYSIS {
  std::deque<SharedLock> locks;
  std::deque<WriteMarks::Settling> settling;
  std::vector<WritableFile*> changed;
  for (const auto& file : files) {
    locks.emplace_back(file->mutex_);
    if (file->writable_ && settling.emplace_back(file->marks_).isWanted()) {
      changed.push_back(file.get());
    }
  }
  if (changed.empty()) return;
  try {
    const auto note = [&](ReplicaWriter& writer) TULO_NO_THREAD_SAFETY_ANALYSIS {
      for (WritableFile* file : changed)
        file->updateRow(writer);
    };
    changed.front()->parts_.replica.write(Durability::eventual, note);
    for (WriteMarks::Settling& each : settling)
      each.done();
    faultPoint("settle.committed");
  } catch (const std::exception& error) {
    serviceLog().error("cannot note the changes of %d files: %{public}@",
                       {changed.size(), error.what()});
  }
}

}  // namespace tulo
