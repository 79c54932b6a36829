#include "service/upload/SentContents.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

#include "platform/linux/FileDescriptor.h"
#include "service/replica/ContentRows.h"

namespace tulo {

namespace {

bool sameBytes(int first, int second) {
  std::vector<char> left(1 << 16);
  std::vector<char> right(1 << 16);
  for (off_t offset = 0;;) {
    const ssize_t a = ::pread(first, left.data(), left.size(), offset);
    const ssize_t b = ::pread(second, right.data(), right.size(), offset);
    if (a < 0 || b < 0) throw std::runtime_error("what was sent cannot be compared");
    if (a != b) return false;
    if (a == 0) return true;
    if (!std::equal(left.begin(), left.begin() + a, right.begin())) return false;
    offset += a;
  }
}

// What was fetched to be compared, and goes afterwards.
class Fetched {
 public:
  Fetched(const HandOver& handOver, std::string path)
      : handOver_(handOver), path_(std::move(path)), file_(handOver_.open(path_)) {}
  ~Fetched() { handOver_.discard(path_); }
  Fetched(const Fetched&) = delete;
  Fetched& operator=(const Fetched&) = delete;

  int file() const { return file_.get(); }

 private:
  const HandOver& handOver_;
  const std::string path_;
  const FileDescriptor file_;
};

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
  const Fetched theirs(store.handOver(), fetched.url->path());
  // That a file cannot be opened at the moment says nothing of its bytes.
  if (sizeOf(store, contents) < 0) return false;
  return sameBytes(theirs.file(), store.openAsIs(contents).get());
}

}  // namespace tulo
