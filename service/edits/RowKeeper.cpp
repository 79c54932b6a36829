#include "service/edits/RowKeeper.h"

#include <chrono>
#include <utility>
#include <vector>

#include "service/errors/ContentError.h"

namespace tulo {

namespace {

// How long changes are gathered before their rows are brought up to date, and how many at most.
constexpr std::chrono::milliseconds kGather{50};
// A thread holds the locks of so many files at once, and the thread sanitizer follows 64.
constexpr std::size_t kMostUnsettled = 48;

}  // namespace

RowKeeper::RowKeeper(WritableFiles& files, const ContentStore& store, std::function<void()> settled)
    : files_(files), store_(store), settled_(std::move(settled)) {}

RowKeeper::~RowKeeper() {
  stop();
}

void RowKeeper::stop() {
  std::thread thread;
  {
    const MutexLock lock(mutex_);
    stopping_ = true;
    changed_.notifyAll();
    thread.swap(thread_);
  }
  if (thread.joinable()) thread.join();
  catchUp();
}

void RowKeeper::settleLater(NodeId node) {
  const std::shared_ptr<WritableFile> file = files_.find(node);
  if (!file || !file->isChanged()) return;
  bool many = false;
  {
    const MutexLock lock(mutex_);
    unsettled_.insert(node);
    many = unsettled_.size() >= kMostUnsettled;
    wake();
  }
  if (many) catchUp();
}

void RowKeeper::nameLater(ContentId content, std::string name) {
  const MutexLock lock(mutex_);
  names_[content] = std::move(name);
  wake();
}

void RowKeeper::forgetName(ContentId content) {
  {
    const MutexLock lock(mutex_);
    names_.erase(content);
  }
  store_.forgetName(content);
}

void RowKeeper::wake() {
  if (!thread_.joinable() && !stopping_) thread_ = std::thread([this] { keepUp(); });
  // While it gathers it need not hear of each.
  if (std::exchange(rests_, false)) changed_.notifyAll();
}

void RowKeeper::keepUp() {
  MutexLock lock(mutex_);
  while (!stopping_) {
    rests_ = true;
    while (!stopping_ && unsettled_.empty() && names_.empty())
      changed_.wait(lock);
    rests_ = false;
    // Changes come in storms; a pause lets them share a transaction.
    const auto end = std::chrono::steady_clock::now() + kGather;
    while (!stopping_ && changed_.waitUntil(lock, end)) {
    }
    lock.unlock();
    catchUp();
    lock.lock();
  }
}

void RowKeeper::catchUp() {
  std::set<NodeId> nodes;
  Names names;
  {
    const MutexLock lock(mutex_);
    nodes.swap(unsettled_);
    names.swap(names_);
  }
  note(names);
  settle(nodes);
}

void RowKeeper::note(const Names& names) const {
  for (const auto& [content, name] : names) {
    try {
      store_.setName(content, name);
    } catch (const ContentError&) {
      // The contents are gone already.
    }
  }
}

void RowKeeper::settle(const std::set<NodeId>& nodes) {
  std::vector<std::shared_ptr<WritableFile>> files;
  for (const NodeId node : nodes) {
    if (auto file = files_.find(node)) files.push_back(std::move(file));
  }
  if (files.empty()) return;
  WritableFile::settleTogether(files);
  for (const NodeId node : nodes)
    files_.released(node);
  settled_();
}

}  // namespace tulo
