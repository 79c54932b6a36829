// A replicated extension whose account is in memory and whose failures a test scripts.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/FileProvider.h"

namespace tulo::test {

struct ScriptedItem {
  std::string identifier;
  std::string parent;
  std::string name;
  bool isFolder = false;
  std::string contents = {};
  int version = 1;
  std::int64_t modified = 1'700'000'000;
  std::uint64_t capabilities = 47;
  std::optional<std::int64_t> claimedSize = std::nullopt;  // instead of the size of the contents
};

// Threads: every member may be called on any thread.
class ScriptedExtension final : public platform::NSFileProviderReplicatedExtension {
 public:
  // What a fetch answers instead of the contents.
  struct FetchScript {
    std::optional<platform::NSError> error = std::nullopt;
    bool noFile = false;       // neither a file nor an error
    bool missingFile = false;  // the path of nothing
    bool directory = false;    // the path of a directory
    std::optional<std::string> bytes = std::nullopt;
    std::optional<std::string> path = std::nullopt;  // names that file, whatever it is
    bool hardLink = false;                           // the file has another name, too
    bool noItem = false;
    std::function<void()> before = nullptr;  // runs first, on the fetching thread
    std::function<void()> after = nullptr;   // runs when the file is there
  };

  explicit ScriptedExtension(std::string directory);
  ~ScriptedExtension() override;

  static std::string root();
  // Puts or replaces an item; returns its identifier.
  std::string put(ScriptedItem item);
  std::string folder(const std::string& identifier, const std::string& name,
                     const std::string& parent = root());
  std::string file(const std::string& identifier, const std::string& name,
                   const std::string& contents, const std::string& parent = root());
  void remove(const std::string& identifier);
  // New contents and the next version.
  void edit(const std::string& identifier, const std::string& contents);
  void change(const std::string& identifier, const std::function<void(ScriptedItem&)>& change);

  // Listings fail with the error, or show only what passes, until it is taken back.
  void setListingError(std::optional<platform::NSError> error);
  void setListingFilter(std::function<bool(const ScriptedItem&)> filter);

  // Runs once, when the next listing has been read and is on its way.
  void afterNextListing(std::function<void()> action);

  // The next fetch of anything; scripts are used up in order.
  void scriptFetch(FetchScript script);
  // Fetches wait until released.
  void holdFetches();
  void releaseFetches();
  std::size_t heldFetches() const;
  // Called on the thread that asks for a fetch, before the request returns.
  void whenFetching(std::function<void()> asked);

  // What a request that changes something answers instead of doing it.
  struct MutationScript {
    std::optional<platform::NSError> error = std::nullopt;
    bool done = false;                       // it is done all the same: the answer was lost
    std::function<void()> before = nullptr;  // runs first
    std::function<void()> after = nullptr;   // runs before the item is looked at for the reply
  };
  // The next create, modify or delete; scripts are used up in order. `always`: for those that come
  // after them.
  void scriptMutation(MutationScript script);
  void scriptMutations(std::optional<MutationScript> always);

  // A create, modify or delete as it came.
  struct Mutation {
    enum class Kind { create, modify, remove };
    Kind kind = Kind::create;
    std::string identifier;
    std::string parent;
    std::string name;
    std::optional<std::string> contents;
    std::uint64_t fields = 0;
    std::string baseVersion;
  };
  std::vector<Mutation> mutations() const;
  void forgetMutations();

  // What looking up any item answers, until it is taken back.
  void setLookUpError(std::optional<platform::NSError> error);
  std::optional<ScriptedItem> find(const std::string& identifier) const;
  std::int64_t countIn(const std::string& folder) const;
  // The items of that name, wherever they are.
  std::vector<ScriptedItem> named(const std::string& name) const;

  std::size_t fetchCount() const;
  std::size_t listingCount() const;

  void invalidate() override {}
  std::shared_ptr<platform::Progress> item(
      const platform::NSFileProviderItemIdentifier& identifier,
      const platform::NSFileProviderRequest& request,
      const platform::ItemCompletion& completionHandler) override;
  std::shared_ptr<platform::NSFileProviderEnumerator> enumerator(
      const platform::NSFileProviderItemIdentifier& container,
      const platform::NSFileProviderRequest& request) override;
  std::shared_ptr<platform::Progress> fetchContents(
      const platform::NSFileProviderItemIdentifier& itemIdentifier,
      const std::optional<platform::NSFileProviderItemVersion>& requestedVersion,
      const platform::NSFileProviderRequest& request,
      platform::FetchCompletion completionHandler) override;
  std::shared_ptr<platform::Progress> createItem(const platform::ItemPointer&,
                                                 platform::NSFileProviderItemFields,
                                                 const std::optional<platform::URL>&,
                                                 platform::NSFileProviderCreateItemOptions,
                                                 const platform::NSFileProviderRequest&,
                                                 platform::MutationCompletion) override;
  std::shared_ptr<platform::Progress> modifyItem(const platform::ItemPointer&,
                                                 const platform::NSFileProviderItemVersion&,
                                                 platform::NSFileProviderItemFields,
                                                 const std::optional<platform::URL>&,
                                                 platform::NSFileProviderModifyItemOptions,
                                                 const platform::NSFileProviderRequest&,
                                                 platform::MutationCompletion) override;
  std::shared_ptr<platform::Progress> deleteItem(const platform::NSFileProviderItemIdentifier&,
                                                 const platform::NSFileProviderItemVersion&,
                                                 platform::NSFileProviderDeleteItemOptions,
                                                 const platform::NSFileProviderRequest&,
                                                 platform::DeleteCompletion) override;

 private:
  struct State;
  class Enumerator;

  std::pair<MutationScript, std::optional<ScriptedItem>> carryOut(
      const Mutation& mutation, const std::function<std::optional<ScriptedItem>()>& work);
  static void answer(const MutationScript& script, const std::optional<ScriptedItem>& item,
                     const platform::MutationCompletion& completionHandler);

  std::shared_ptr<State> state_;
};

}  // namespace tulo::test
