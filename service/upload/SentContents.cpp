#include "service/upload/SentContents.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "platform/linux/FileDescriptor.h"
#include "service/replica/ContentRows.h"

namespace tulo {

namespace {

bool sameBytes(const std::string& one, const std::string& other) {
  const FileDescriptor first(::open(one.c_str(), O_RDONLY | O_CLOEXEC));
  const FileDescriptor second(::open(other.c_str(), O_RDONLY | O_CLOEXEC));
  if (!first || !second) return false;
  std::vector<char> left(1 << 16);
  std::vector<char> right(1 << 16);
  for (off_t offset = 0;;) {
    const ssize_t a = ::pread(first.get(), left.data(), left.size(), offset);
    const ssize_t b = ::pread(second.get(), right.data(), right.size(), offset);
    if (a < 0 || a != b) return false;
    if (a == 0) return true;
    if (!std::equal(left.begin(), left.begin() + a, right.begin())) return false;
    offset += a;
  }
}

}  // namespace

void dropSentContents(ReplicaWriter& writer, const Change& change, ContentId current) {
  const ContentId sent = change.request.contents();
  if (sent == kNoContent || sent == current) return;
  contentRows::disuse(writer, sent);
}

std::int64_t sizeOf(const ContentStore& store, ContentId contents) {
  struct stat status = {};
  return ::stat(store.path(contents).c_str(), &status) == 0 ? status.st_size : -1;
}

std::optional<bool> hostHasContents(Provider& provider, const ContentStore& store,
                                    const std::string& identifier, ContentId contents) {
  const Answer fetched = provider.fetch(identifier);
  if (fetched.isGone()) return false;
  if (fetched.stopped) return std::nullopt;
  if (fetched.error || !fetched.url) {
    throw std::runtime_error("what the host made of it cannot be seen at the moment");
  }
  const bool same = sameBytes(fetched.url->path(), store.path(contents));
  ::unlink(fetched.url->path().c_str());
  return same;
}

}  // namespace tulo
