#include "service/mount/ReadRequests.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <vector>

#include "service/errors/ContentError.h"
#include "service/mount/Handles.h"
#include "service/mount/MountGuard.h"
#include "service/mount/Replies.h"
#include "service/mount/RequestLoop.h"

namespace tulo {

namespace {

// Up to this size a read is answered from a buffer: below it, moving pages costs more than it
// saves.
constexpr std::size_t kSmallRead = 32 * 1024;

// Whether reading waits for no disk; told from the first and the last page.
bool isInMemory(int file, std::size_t size, off_t offset) {
  for (const off_t place :
       {offset, offset + static_cast<off_t>(std::max<std::size_t>(size, 1)) - 1}) {
    char byte = 0;
    const iovec vector = {&byte, 1};
    if (::preadv2(file, &vector, 1, place, RWF_NOWAIT) < 0) return false;
  }
  return true;
}

void replySmall(fuse_req_t request, int file, std::size_t size, off_t offset) {
  std::array<char, kSmallRead> buffer;
  const ssize_t count = ::pread(file, buffer.data(), size, offset);
  replyRead(request, buffer.data(), count < 0 ? -errno : count);
}

void replyPages(fuse_req_t request, int file, std::size_t size, off_t offset) {
  fuse_bufvec buffers{};  // libfuse's own initialiser is no C++ to clang
  buffers.count = 1;
  buffers.buf[0].size = size;
  buffers.buf[0].flags = static_cast<fuse_buf_flags>(FUSE_BUF_IS_FD | FUSE_BUF_FD_SEEK);
  buffers.buf[0].fd = file;
  buffers.buf[0].pos = offset;
  fuse_reply_data(request, &buffers, FUSE_BUF_SPLICE_MOVE);
}

}  // namespace

ReadRequests::ReadRequests(const MountParts& parts)
    : contents_(parts.contents), files_(parts.files) {}

void ReadRequests::read(fuse_req_t request, std::size_t size, off_t offset,
                        const fuse_file_info& info) {
  guarded(request, [&] {
    OpenFile& file = Handles::fileOf(info);
    if (readShared(request, file, size, offset)) return;
    if (file.endsBefore(offset)) {
      fuse_reply_buf(request, nullptr, 0);
      return;
    }
    readContents(request, file, size, offset);
  });
}

void ReadRequests::readContents(fuse_req_t request, OpenFile& file, std::size_t size,
                                off_t offset) {
  try {
    const std::shared_ptr<const FileDescriptor> descriptor = file.descriptor();
    if (!isInMemory(descriptor->get(), size, offset)) RequestLoop::passTurn();
    if (size <= kSmallRead) {
      replySmall(request, descriptor->get(), size, offset);
    } else {
      replyPages(request, descriptor->get(), size, offset);
    }
  } catch (const ContentError& error) {
    contents_.cannotRead(file, error);
    fuse_reply_err(request, errnoFor(error));
  }
}

bool ReadRequests::readShared(fuse_req_t request, OpenFile& file, std::size_t size, off_t offset) {
  if (!files_) return false;
  const std::shared_ptr<WritableFile> shared = files_->find(file.node());
  if (!shared) return false;
  std::vector<char> buffer(size);
  const ssize_t count = shared->read(buffer.data(), size, offset);
  // Nobody has it open for writing; the object is there for somebody who settles the file.
  if (count == -ENODATA) return false;
  replyRead(request, buffer.data(), count);
  return true;
}

}  // namespace tulo
