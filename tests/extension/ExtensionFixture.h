// An extension for one domain, with its container, index and log, for the tests of this folder.
#pragma once

#include <gmock/gmock.h>

#include <filesystem>

#include "bridge/HostBridge.h"
#include "extension/FileProviderExtension.h"
#include "index/Index.h"
#include "tests/support/CaseName.h"
#include "tests/support/Container.h"
#include "tests/support/FakeHost.h"
#include "tests/support/IndexBuilder.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/SystemSide.h"

namespace tulo::test {

using platform::fileProviderError;
using platform::JSONObject;
using platform::NSError;
using platform::NSFileProviderErrorCode;
using platform::Progress;
using platform::URL;

inline const std::string root = platform::NSFileProviderRootContainerItemIdentifier();
inline const NSError noSuchItem = fileProviderError(NSFileProviderErrorCode::noSuchItem);
inline const NSError serverUnreachable =
    fileProviderError(NSFileProviderErrorCode::serverUnreachable);
inline const NSError cannotSynchronize =
    fileProviderError(NSFileProviderErrorCode::cannotSynchronize);

// What a placeholder says, but for its identifier.
inline const std::string likeTheRoot =
    " in " + root +
    " named Tulo Hub type public.folder may 3 size none modified none uploaded version 0 / 0-";

inline std::shared_ptr<FileProviderExtension> extensionFor(const std::string& domain) {
  return std::make_shared<FileProviderExtension>(
      std::make_shared<platform::NSFileProviderDomain>(domain, "Tulo Hub"));
}

// Notes how far a request's progress is while its callbacks run. They may come before the request
// has returned its progress, and then wait for it.
class ProgressWatch {
 public:
  std::function<void()> during() {
    return [state = state_] {
      if (!state->isKnown.wait()) return;
      const std::scoped_lock lock(state->mutex);
      state->counts.push_back(state->progress->completedUnitCount());
    };
  }

  std::shared_ptr<Progress> of(std::shared_ptr<Progress> progress) {
    state_->progress = progress;
    state_->isKnown.open();
    return progress;
  }

  std::vector<std::int64_t> counts() const {
    const std::scoped_lock lock(state_->mutex);
    return state_->counts;
  }

 private:
  struct State {
    Gate isKnown;
    std::shared_ptr<Progress> progress;
    std::mutex mutex;
    std::vector<std::int64_t> counts;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

// Whether the progress reached its total within the bound.
inline bool completes(const Progress& progress) {
  return eventually([&] { return progress.completedUnitCount() == progress.totalUnitCount(); });
}

class ExtensionFixture : public testing::Test {
 protected:
  ExtensionFixture() : extension_(extensionFor(Index::domainPrefix() + "42")) { log_.clear(); }

  std::string path() const { return container_.file("state-42.db"); }
  IndexBuilder builder() const { return IndexBuilder(path()); }
  LogLine noIndex() const { return indexInfo("no index at " + path() + " yet"); }

  // The only request so far.
  static JSONObject requestTo(const FakeHost& host) {
    const auto requests = host.requests();
    EXPECT_EQ(requests.size(), 1U);
    if (requests.size() != 1) return {};
    return platform::JSONSerialization::object(requests.front()).value_or(JSONObject{});
  }

  std::size_t stagedCopies() const {
    const std::string directory = container_.file("fp-upload");
    if (!std::filesystem::is_directory(directory)) return 0;
    const auto copies = std::filesystem::directory_iterator(directory);
    return static_cast<std::size_t>(std::distance(begin(copies), end(copies)));
  }

  Container container_;
  LogRecorder log_;
  std::shared_ptr<FileProviderExtension> extension_;
};

}  // namespace tulo::test
