// The system's side of the protocol, played by a test: completions and observers that record each
// call with its thread, and waiting for them with a bound.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "platform/FileProvider.h"
#include "tests/support/Eventually.h"

namespace tulo::test {

// Makes callbacks and records what they are called with. A callback may outlive the recorder.
template <typename... Arguments>
class CallRecorder {
 public:
  struct Call {
    std::tuple<Arguments...> arguments;
    std::thread::id thread;
  };

  // `during` runs inside each call, after it was recorded.
  std::function<void(Arguments...)> callback(std::function<void()> during = nullptr) const {
    return [state = state_, during](Arguments... arguments) {
      state->add({std::tuple<Arguments...>(std::move(arguments)...), std::this_thread::get_id()});
      if (during) during();
    };
  }

  // Whether there were at least so many calls within the bound.
  bool waitFor(std::size_t count) const {
    std::unique_lock lock(state_->mutex);
    return state_->changed.wait_for(lock, patience, [&] { return state_->calls.size() >= count; });
  }

  std::vector<Call> calls() const {
    const std::scoped_lock lock(state_->mutex);
    return state_->calls;
  }

  std::size_t count() const { return calls().size(); }

  // One argument of the only call. Throws std::bad_optional_access unless there was exactly one.
  template <std::size_t position>
  auto argument() const {
    const auto all = calls();
    std::optional<Call> only;
    if (all.size() == 1) only = all.front();
    return std::get<position>(only.value().arguments);
  }

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Call> calls;

    void add(Call call) {
      const std::scoped_lock lock(mutex);
      calls.push_back(std::move(call));
      changed.notify_all();
    }
  };

  std::shared_ptr<State> state_ = std::make_shared<State>();
};

using ItemCalls = CallRecorder<platform::ItemPointer, std::optional<platform::NSError>>;
using FetchCalls = CallRecorder<std::optional<platform::URL>, platform::ItemPointer,
                                std::optional<platform::NSError>>;
using MutationCalls = CallRecorder<platform::ItemPointer, platform::NSFileProviderItemFields, bool,
                                   std::optional<platform::NSError>>;
using DeleteCalls = CallRecorder<std::optional<platform::NSError>>;
using ThumbnailCalls =
    CallRecorder<platform::NSFileProviderItemIdentifier, std::optional<platform::Data>,
                 std::optional<platform::NSError>>;
using ThumbnailsCalls = CallRecorder<std::optional<platform::NSError>>;
using AnchorCalls = CallRecorder<std::optional<platform::NSFileProviderSyncAnchor>>;

// Both kinds of observer write their calls down as text, in order, so that one comparison covers
// the calls, their order and that there were no others. Used on one thread.
class RecordingObserver : public platform::NSFileProviderEnumerationObserver {
 public:
  void didEnumerateItems(std::vector<platform::ItemPointer> items) override;
  void finishEnumeratingUpToPage(std::optional<platform::NSFileProviderPage> nextPage) override;
  void finishEnumeratingWithError(const platform::NSError& error) override;

  // "items N", "finished", "finished with page P", "error CODE".
  const std::vector<std::string>& calls() const { return calls_; }
  const std::vector<platform::ItemPointer>& items() const { return items_; }
  std::vector<std::string> filenames() const;

 private:
  std::vector<std::string> calls_;
  std::vector<platform::ItemPointer> items_;
};

class RecordingChangeObserver : public platform::NSFileProviderChangeObserver {
 public:
  void didUpdateItems(std::vector<platform::ItemPointer> items) override;
  void didDeleteItems(std::vector<platform::NSFileProviderItemIdentifier> identifiers) override;
  void finishEnumeratingChanges(const platform::NSFileProviderSyncAnchor& anchor,
                                bool moreComing) override;
  void finishEnumeratingWithError(const platform::NSError& error) override;

  // "updates N", "deletions N", "finished at ANCHOR", "finished at ANCHOR, more coming",
  // "error CODE".
  const std::vector<std::string>& calls() const { return calls_; }
  const std::optional<platform::NSError>& error() const { return error_; }

 private:
  std::vector<std::string> calls_;
  std::optional<platform::NSError> error_;
};

// An item as the system hands it to a mutation.
struct PlainItem : platform::NSFileProviderItem {
  platform::NSFileProviderItemIdentifier identifier;
  platform::NSFileProviderItemIdentifier parent =
      platform::NSFileProviderRootContainerItemIdentifier();
  std::string name;
  std::optional<platform::UTType> type;

  platform::NSFileProviderItemIdentifier itemIdentifier() const override { return identifier; }
  platform::NSFileProviderItemIdentifier parentItemIdentifier() const override { return parent; }
  std::string filename() const override { return name; }
  std::optional<platform::UTType> contentType() const override { return type; }
};

// All that an item says, in one line, for comparison.
std::string described(const platform::NSFileProviderItem& item);

}  // namespace tulo::test

namespace tulo::platform {

// Readable failures of comparisons.
std::ostream& operator<<(std::ostream& out, const NSError& error);
std::ostream& operator<<(std::ostream& out, const URL& url);

}  // namespace tulo::platform
