#include "service/upload/Provider.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <thread>
#include <utility>

#include "platform/linux/Mutex.h"
#include "service/upload/SentItem.h"

namespace tulo {

namespace {

constexpr std::chrono::milliseconds kStopCheck{100};
constexpr std::chrono::milliseconds kRowCheck{100};
constexpr int kLooksForRow = 20;

// As good as none: the same question is to be asked again later.
Answer unbelieved() {
  Answer answer;
  answer.error = platform::fileProviderError(platform::NSFileProviderErrorCode::serverUnreachable);
  return answer;
}

}  // namespace

bool Answer::isGone() const {
  return error && error->domain == platform::NSFileProviderErrorDomain &&
         error->code == static_cast<std::int64_t>(platform::NSFileProviderErrorCode::noSuchItem);
}

// One question on its way. `answered` may come on any thread, also after nobody waits any more.
class Provider::Call {
 public:
  explicit Call(HandOver handOver) : handOver_(std::move(handOver)) {}

  void answered(platform::ItemPointer item, std::optional<platform::NSError> error,
                std::optional<platform::URL> url = std::nullopt) {
    const MutexLock lock(mutex_);
    if (abandoned_ && url) handOver_.discard(url->path());
    answer_.item = std::move(item);
    answer_.error = std::move(error);
    answer_.url = std::move(url);
    finish();
  }

  void listed(Listing listing) {
    const MutexLock lock(mutex_);
    answer_.error = listing.error;
    answer_.listing = std::move(listing);
    finish();
  }

  Answer await(const std::atomic<bool>& stopping) {
    MutexLock lock(mutex_);
    while (!done_) {
      changed_.waitFor(lock, kStopCheck);
      if (done_ || !stopping) continue;
      abandoned_ = true;
      Answer answer;
      answer.stopped = true;
      return answer;
    }
    return answer_;
  }

 private:
  void finish() TULO_REQUIRES(mutex_) {
    done_ = true;
    changed_.notifyAll();
  }

  // Its own, since it may be here longer than anything else.
  const HandOver handOver_;
  // A leaf.
  Mutex mutex_;
  Condition changed_;
  bool done_ TULO_GUARDED_BY(mutex_) = false;
  bool abandoned_ TULO_GUARDED_BY(mutex_) = false;
  Answer answer_ TULO_GUARDED_BY(mutex_);
};

Answer Provider::await(const std::function<void(std::shared_ptr<Call>)>& begin) const {
  const auto call = std::make_shared<Call>(store_.handOver());
  begin(call);
  return call->await(stopping_);
}

Answer Provider::lookUp(const std::string& identifier) {
  Answer answer = await([&](std::shared_ptr<Call> call) {
    extension_->item(identifier, {},
                     [call](platform::ItemPointer item, std::optional<platform::NSError> error) {
                       call->answered(std::move(item), std::move(error));
                     });
  });
  if (!answer.isGone() || belief_.errorOfAbsence(identifier) == 0) return answer;
  return unbelieved();
}

platform::ItemPointer Provider::awaitRow(const Node& sent, const platform::ItemPointer& item) {
  platform::ItemPointer found = item;
  for (int look = 0; look < kLooksForRow && !stopping_ && isPlaceholder(sent, *found); ++look) {
    std::this_thread::sleep_for(kRowCheck);
    if (const Answer now = lookUp(item->itemIdentifier()); now.item) found = now.item;
  }
  return found;
}

Answer Provider::list(const std::string& identifier) {
  std::optional<std::int64_t> before;
  for (unsigned answers = 1;; ++answers) {
    Answer answer = listOnce(identifier);
    if (answer.stopped || answer.error) return answer;
    const int doubt = belief_.errorOfListing(identifier, answer.listing.items.size(), before);
    if (doubt == 0) return answer;
    if (doubt != EAGAIN || answers == Belief::kMostAnswers) return unbelieved();
    before = belief_.children(identifier);
  }
}

Answer Provider::listOnce(const std::string& identifier) {
  return await([&](std::shared_ptr<Call> call) {
    enumerate(*extension_, identifier,
              [call](Listing listing) { call->listed(std::move(listing)); });
  });
}

Answer Provider::fetch(const std::string& identifier) {
  return await([&](std::shared_ptr<Call> call) {
    extension_->fetchContents(identifier, std::nullopt, {},
                              [call](std::optional<platform::URL> url, platform::ItemPointer item,
                                     std::optional<platform::NSError> error) {
                                call->answered(std::move(item), std::move(error), std::move(url));
                              });
  });
}

Answer Provider::send(const Plan& plan) {
  std::optional<platform::URL> contents;
  if (plan.sendsContents()) contents.emplace(store_.path(plan.node.content));
  const platform::ItemPointer item = itemOf(plan.node, plan.parentIdentifier);
  const platform::NSFileProviderItemVersion base{plan.change.base().version,
                                                 plan.node.metadataVersion};
  return await([&](std::shared_ptr<Call> call) {
    const platform::MutationCompletion done = [call](platform::ItemPointer answer,
                                                     platform::NSFileProviderItemFields, bool,
                                                     std::optional<platform::NSError> error) {
      call->answered(std::move(answer), std::move(error));
    };
    if (plan.kind == Plan::Kind::create) {
      extension_->createItem(item, plan.fields, contents, 0, {}, done);
    } else if (plan.kind == Plan::Kind::modify) {
      extension_->modifyItem(item, base, plan.fields, contents, 0, {}, done);
    } else {
      extension_->deleteItem(plan.node.identifier, base, 0, {},
                             [call](std::optional<platform::NSError> error) {
                               call->answered(nullptr, std::move(error));
                             });
    }
  });
}

}  // namespace tulo
