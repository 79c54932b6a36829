#include "service/desktop/ThumbnailBatcher.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

namespace tulo {

namespace {

constexpr int kNice = 10;
// Enough for the folders that wait; when they are more, the oldest knowledge is not worth a search.
constexpr std::size_t kMostMisses = 20'000;

std::string missKey(const ThumbnailFile& file) {
  return file.identifier + '\0' + std::to_string(file.original.modified);
}

}  // namespace

struct ThumbnailBatcher::Batch {
  // Guards all fields; a leaf.
  std::mutex mutex;
  std::condition_variable changed;
  std::map<platform::NSFileProviderItemIdentifier, platform::Data> images;
  std::shared_ptr<platform::Progress> progress;
  bool ended = false;
  bool cancelled = false;

  void add(const platform::NSFileProviderItemIdentifier& identifier, platform::Data image) {
    const std::scoped_lock lock(mutex);
    images.emplace(identifier, std::move(image));
  }

  void end() {
    const std::scoped_lock lock(mutex);
    ended = true;
    changed.notify_all();
  }

  void cancel() {
    const std::scoped_lock lock(mutex);
    cancelled = true;
    if (progress) progress->cancel();
    changed.notify_all();
  }

  void setProgress(std::shared_ptr<platform::Progress> value) {
    const std::scoped_lock lock(mutex);
    progress = std::move(value);
    if (cancelled && progress) progress->cancel();
  }

  std::map<platform::NSFileProviderItemIdentifier, platform::Data> takeImages() {
    const std::scoped_lock lock(mutex);
    return std::move(images);
  }

  // False if the batch was cancelled before its end.
  bool wait() {
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return ended || cancelled; });
    return !cancelled;
  }
};

ThumbnailBatcher::ThumbnailBatcher(std::shared_ptr<platform::NSFileProviderThumbnailing> source,
                                   DesktopThumbnails desktop, Clock clock)
    : source_(std::move(source)), desktop_(std::move(desktop)), clock_(std::move(clock)) {}

ThumbnailBatcher::~ThumbnailBatcher() {
  stop();
}

void ThumbnailBatcher::listed(std::uint64_t folder, ThumbnailPages files) {
  const std::scoped_lock lock(mutex_);
  if (stopped_) return;
  std::erase_if(folders_, [&](const auto& waiting) { return waiting->number == folder; });
  folders_.push_front(std::make_shared<Folder>(Folder{folder, std::move(files), {}}));
  if (folders_.size() > kMostFolders) folders_.pop_back();
  changed_.notify_all();
}

bool ThumbnailBatcher::step() {
  const std::scoped_lock oneAtATime(stepMutex_);
  const std::vector<ThumbnailFile> files = nextFiles();
  if (!files.empty()) fetch(files);
  const std::scoped_lock lock(mutex_);
  return !stopped_ && !folders_.empty();
}

std::shared_ptr<ThumbnailBatcher::Folder> ThumbnailBatcher::frontFolder() {
  const std::scoped_lock lock(mutex_);
  if (stopped_ || folders_.empty()) return nullptr;
  return folders_.front();
}

void ThumbnailBatcher::drop(const std::shared_ptr<Folder>& folder) {
  const std::scoped_lock lock(mutex_);
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

bool ThumbnailBatcher::isWanted(const ThumbnailFile& file) {
  {
    const std::scoped_lock lock(mutex_);
    const auto miss = misses_.find(missKey(file));
    if (miss != misses_.end() && clock_() < miss->second) return false;
  }
  return !desktop_.has(file.original);
}

void ThumbnailBatcher::fetch(const std::vector<ThumbnailFile>& files) {
  const auto batch = std::make_shared<Batch>();
  if (!begin(batch)) return;
  request(files, batch);
  const bool whole = batch->wait();
  {
    const std::scoped_lock lock(mutex_);
    running_.reset();
  }
  if (!whole) return;
  const auto images = batch->takeImages();
  for (const ThumbnailFile& file : files) {
    if (isStopped()) return;
    const auto found = images.find(file.identifier);
    if (found == images.end()) {
      remember(file);
    } else {
      store(file, found->second);
    }
  }
}

bool ThumbnailBatcher::begin(const std::shared_ptr<Batch>& batch) {
  const std::scoped_lock lock(mutex_);
  if (!stopped_) running_ = batch;
  return !stopped_;
}

void ThumbnailBatcher::request(const std::vector<ThumbnailFile>& files,
                               const std::shared_ptr<Batch>& batch) {
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

void ThumbnailBatcher::store(const ThumbnailFile& file, const std::string& image) {
  // Damaged bytes will not be better in a moment, and a cache that cannot be written not either.
  if (desktop_.store(file.original, image) != DesktopThumbnails::Outcome::written) remember(file);
}

void ThumbnailBatcher::remember(const ThumbnailFile& file) {
  const std::scoped_lock lock(mutex_);
  if (misses_.size() >= kMostMisses) misses_.clear();
  misses_[missKey(file)] = clock_() + kMissRemembered;
}

bool ThumbnailBatcher::isStopped() {
  const std::scoped_lock lock(mutex_);
  return stopped_;
}

void ThumbnailBatcher::forgetMisses() {
  const std::scoped_lock lock(mutex_);
  misses_.clear();
}

void ThumbnailBatcher::start() {
  thread_ = std::thread([this] { run(); });
}

void ThumbnailBatcher::run() {
  // On Linux the priority belongs to the thread. A refusal costs nothing but the courtesy.
  setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNice);
  while (true) {
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return stopped_ || !folders_.empty(); });
      if (stopped_) return;
    }
    step();
  }
}

void ThumbnailBatcher::stop() {
  std::shared_ptr<Batch> running;
  {
    const std::scoped_lock lock(mutex_);
    stopped_ = true;
    folders_.clear();
    running = running_;
    changed_.notify_all();
  }
  if (running) running->cancel();
  // Let go of before the thread is joined, which may be just about to step.
  { const std::scoped_lock noStepRuns(stepMutex_); }
  if (thread_.joinable()) thread_.join();
}

}  // namespace tulo
