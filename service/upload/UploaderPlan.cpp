#include "service/upload/UploaderPlan.h"

#include <unistd.h>

#include <array>
#include <chrono>
#include <ctime>

namespace tulo {

namespace {

constexpr std::chrono::milliseconds kStopCheck{100};

class LocalItem final : public platform::NSFileProviderItem {
 public:
  LocalItem(const Node& node, std::string parent) : node_(node), parent_(std::move(parent)) {}

  platform::NSFileProviderItemIdentifier itemIdentifier() const override {
    return node_.identifier;
  }
  platform::NSFileProviderItemIdentifier parentItemIdentifier() const override { return parent_; }
  std::string filename() const override { return node_.filename; }
  std::optional<platform::UTType> contentType() const override {
    if (node_.kind == NodeKind::folder) return platform::UTType::folder();
    const std::size_t dot = node_.filename.rfind('.');
    const std::string extension =
        dot == std::string::npos ? std::string() : node_.filename.substr(dot + 1);
    return platform::UTType::dataTypeWithFilenameExtension(extension).value_or(
        platform::UTType::data());
  }
  platform::NSFileProviderItemCapabilities capabilities() const override {
    return node_.capabilities;
  }
  std::optional<std::int64_t> documentSize() const override {
    if (node_.kind == NodeKind::folder) return std::nullopt;
    return node_.size;
  }
  std::optional<platform::Date> contentModificationDate() const override {
    return platform::Date(node_.modified.whole);
  }
  platform::NSFileProviderItemVersion itemVersion() const override {
    return {node_.contentVersion, node_.metadataVersion};
  }

 private:
  const Node node_;
  const std::string parent_;
};

}  // namespace

void Uploader::Call::answered(platform::ItemPointer item, std::optional<platform::NSError> error,
                              std::optional<platform::URL> url) {
  std::lock_guard lock(mutex);
  if (abandoned && url) ::unlink(url->path().c_str());
  answer.item = std::move(item);
  answer.error = std::move(error);
  answer.url = std::move(url);
  done = true;
  changed.notify_all();
}

void Uploader::Call::listed(Listing listing) {
  std::lock_guard lock(mutex);
  answer.error = listing.error;
  answer.listing = std::move(listing);
  done = true;
  changed.notify_all();
}

Uploader::Answer Uploader::await(const std::function<void(std::shared_ptr<Call>)>& begin) {
  const auto call = std::make_shared<Call>();
  begin(call);
  const auto stopping = [this] {
    std::lock_guard lock(mutex_);
    return stopping_;
  };
  std::unique_lock lock(call->mutex);
  while (!call->done) {
    call->changed.wait_for(lock, kStopCheck);
    if (call->done) break;
    lock.unlock();
    const bool stop = stopping();
    lock.lock();
    if (!stop || call->done) continue;
    call->abandoned = true;
    Answer answer;
    answer.stopped = true;
    return answer;
  }
  return call->answer;
}

Uploader::Answer Uploader::lookUp(const std::string& identifier) {
  return await([&](std::shared_ptr<Call> call) {
    parts_.extension->item(
        identifier, {}, [call](platform::ItemPointer item, std::optional<platform::NSError> error) {
          call->answered(std::move(item), std::move(error));
        });
  });
}

Uploader::Answer Uploader::list(const std::string& identifier) {
  return await([&](std::shared_ptr<Call> call) {
    enumerate(*parts_.extension, identifier,
              [call](Listing listing) { call->listed(std::move(listing)); });
  });
}

Uploader::Answer Uploader::send(const Plan& plan) {
  std::optional<platform::URL> contents;
  if (plan.sendsContents()) contents.emplace(parts_.store.path(plan.node.content));
  const platform::ItemPointer item = templateFor(plan.node, plan.parentIdentifier);
  const platform::NSFileProviderItemVersion base{plan.change.baseVersion,
                                                 plan.node.metadataVersion};
  return await([&](std::shared_ptr<Call> call) {
    const platform::MutationCompletion done = [call](platform::ItemPointer answer,
                                                     platform::NSFileProviderItemFields, bool,
                                                     std::optional<platform::NSError> error) {
      call->answered(std::move(answer), std::move(error));
    };
    if (plan.kind == Plan::Kind::create) {
      parts_.extension->createItem(item, plan.fields, contents, 0, {}, done);
    } else if (plan.kind == Plan::Kind::modify) {
      parts_.extension->modifyItem(item, base, plan.fields, contents, 0, {}, done);
    } else {
      parts_.extension->deleteItem(plan.node.identifier, base, 0, {},
                                   [call](std::optional<platform::NSError> error) {
                                     call->answered(nullptr, std::move(error));
                                   });
    }
  });
}

platform::ItemPointer templateFor(const Node& node, const std::string& parentIdentifier) {
  return std::make_shared<LocalItem>(node, parentIdentifier);
}

bool isPlaceholder(const Node& sent, const platform::NSFileProviderItem& item) {
  const bool folder = item.contentType() == platform::UTType::folder();
  if (sent.kind == NodeKind::file) return folder;
  return !folder || item.filename() != sent.filename;
}

std::string conflictedName(const std::string& name, const std::string& machine, WallSeconds when,
                           unsigned attempt) {
  const std::time_t time = std::chrono::system_clock::to_time_t(when);
  std::tm parts = {};
  ::localtime_r(&time, &parts);
  std::array<char, 16> date{};
  std::strftime(date.data(), date.size(), "%Y-%m-%d", &parts);
  std::string mark = " (conflicted copy of " + machine + ", " + date.data();
  if (attempt > 1) mark += ", " + std::to_string(attempt);
  mark += ")";
  const std::size_t dot = name.rfind('.');
  const std::size_t stem = dot == std::string::npos || dot == 0 ? name.size() : dot;
  return name.substr(0, stem) + mark + name.substr(stem);
}

}  // namespace tulo
