#include "service/desktop/ThumbnailBatcher.h"

#include <sys/resource.h>
#include <unistd.h>

#include <utility>

namespace tulo {

namespace {

using Outcome = DesktopThumbnails::Outcome;

constexpr int kNice = 10;

}  // namespace

ThumbnailBatcher::ThumbnailBatcher(std::shared_ptr<platform::NSFileProviderThumbnailing> source,
                                   DesktopThumbnails desktop, Clock clock)
    : source_(std::move(source)), desktop_(std::move(desktop)), misses_(std::move(clock)) {}

ThumbnailBatcher::~ThumbnailBatcher() {
  stop();
}

void ThumbnailBatcher::listed(std::uint64_t folder, ThumbnailPages files) {
  const MutexLock lock(mutex_);
  if (stopped_) return;
  std::erase_if(folders_, [&](const auto& waiting) { return waiting->number == folder; });
  folders_.push_front(std::make_shared<Folder>(Folder{folder, std::move(files), {}}));
  if (folders_.size() > kMostFolders) folders_.pop_back();
  changed_.notifyAll();
}

bool ThumbnailBatcher::step() {
  const MutexLock oneAtATime(stepMutex_);
  const std::vector<ThumbnailFile> files = nextFiles();
  if (!files.empty()) fetch(files);
  const MutexLock lock(mutex_);
  return !stopped_ && !folders_.empty();
}

std::shared_ptr<ThumbnailBatcher::Folder> ThumbnailBatcher::frontFolder() {
  const MutexLock lock(mutex_);
  if (stopped_ || folders_.empty()) return nullptr;
  return folders_.front();
}

void ThumbnailBatcher::drop(const std::shared_ptr<Folder>& folder) {
  const MutexLock lock(mutex_);
  std::erase(folders_, folder);
}

std::vector<ThumbnailFile> ThumbnailBatcher::nextFiles() {
  std::vector<ThumbnailFile> result;
  while (result.size() < kBatch) {
    const auto folder = frontFolder();
    if (!folder) break;
    if (folder->files.empty()) {
      std::vector<ThumbnailFile> page = folder->pages();
      if (page.empty()) drop(folder);
      std::move(page.begin(), page.end(), std::back_inserter(folder->files));
      continue;
    }
    if (isWanted(folder->files.front())) result.push_back(std::move(folder->files.front()));
    folder->files.pop_front();
  }
  return result;
}

bool ThumbnailBatcher::isWanted(const ThumbnailFile& file) const {
  return !misses_.has(file) && !desktop_.has(file.original);
}

void ThumbnailBatcher::fetch(const std::vector<ThumbnailFile>& files) {
  const auto batch = std::make_shared<ThumbnailBatch>();
  if (!begin(batch)) return;
  request(files, batch);
  const bool whole = batch->wait();
  end();
  if (!whole) return;
  const ThumbnailBatch::Images images = batch->takeImages();
  for (const ThumbnailFile& file : files) {
    if (isStopped()) return;
    const auto found = images.find(file.identifier);
    // Damaged bytes will not be better in a moment, and a cache that cannot be written not either.
    const bool stored =
        found != images.end() && desktop_.store(file.original, found->second) == Outcome::written;
    if (!stored) misses_.add(file);
  }
}

bool ThumbnailBatcher::begin(const std::shared_ptr<ThumbnailBatch>& batch) {
  const MutexLock lock(mutex_);
  if (!stopped_) running_ = batch;
  return !stopped_;
}

void ThumbnailBatcher::end() {
  const MutexLock lock(mutex_);
  running_.reset();
}

void ThumbnailBatcher::request(const std::vector<ThumbnailFile>& files,
                               const std::shared_ptr<ThumbnailBatch>& batch) {
  std::vector<platform::NSFileProviderItemIdentifier> identifiers;
  identifiers.reserve(files.size());
  for (const ThumbnailFile& file : files)
    identifiers.push_back(file.identifier);
  const double side = DesktopThumbnails::kLargestSide;
  batch->setProgress(source_->fetchThumbnails(
      std::move(identifiers), {side, side},
      [batch](const auto& identifier, std::optional<platform::Data> image, const auto& error) {
        if (image && !error) batch->add(identifier, std::move(*image));
      },
      [batch](const auto& /*error*/) { batch->end(); }));
}

bool ThumbnailBatcher::isStopped() {
  const MutexLock lock(mutex_);
  return stopped_;
}

void ThumbnailBatcher::start() {
  thread_ = std::thread([this] { run(); });
}

void ThumbnailBatcher::run() {
  // On Linux the priority belongs to the thread. A refusal costs nothing but the courtesy.
  setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNice);
  while (waitForWork())
    step();
}

bool ThumbnailBatcher::waitForWork() {
  MutexLock lock(mutex_);
  while (!stopped_ && folders_.empty())
    changed_.wait(lock);
  return !stopped_;
}

void ThumbnailBatcher::stop() {
  std::shared_ptr<ThumbnailBatch> running;
  {
    const MutexLock lock(mutex_);
    stopped_ = true;
    folders_.clear();
    running = running_;
    changed_.notifyAll();
  }
  if (running) running->cancel();
  // Let go of before the thread is joined, which may be just about to step.
  { const MutexLock noStepRuns(stepMutex_); }
  if (thread_.joinable()) thread_.join();
}

}  // namespace tulo
