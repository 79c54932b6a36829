// The extension's front: what the system creates for each domain and asks everything of.
//
// An instance is its domain's account and the name of that account's index; it holds no connection
// and no open file. Lookups and listings are answered from the index on the calling thread;
// whatever needs the host application is handed to a worker of a global queue, which calls the
// completion.
//
// Threads: immutable; every call may be made on any thread, several at a time.
// Lifetime: work that is running keeps what it needs and outlives the instance.
// Errors: given to the completion, never thrown.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/FileProvider.h"

namespace tulo {

class FileProviderExtension final : public platform::NSFileProviderReplicatedExtension,
                                    public platform::NSFileProviderThumbnailing {
 public:
  // Opens nothing: a missing index shows at the first request. Aborts when the system has no
  // manager for the domain.
  explicit FileProviderExtension(platform::DomainPointer domain);
  FileProviderExtension() = delete;

  const platform::DomainPointer& domain() const { return domain_; }

  // Does nothing. Requests that run go on, and further ones are served.
  void invalidate() override;

  // Completes before it returns.
  std::shared_ptr<platform::Progress> item(
      const platform::NSFileProviderItemIdentifier& identifier,
      const platform::NSFileProviderRequest& request,
      const platform::ItemCompletion& completionHandler) override;

  // An enumerator for any identifier whatsoever.
  std::shared_ptr<platform::NSFileProviderEnumerator> enumerator(
      const platform::NSFileProviderItemIdentifier& containerItemIdentifier,
      const platform::NSFileProviderRequest& request) override;

  // Delivers the host's current contents, whatever version is requested. The item is absent when
  // its row cannot be read back.
  std::shared_ptr<platform::Progress> fetchContents(
      const platform::NSFileProviderItemIdentifier& itemIdentifier,
      const std::optional<platform::NSFileProviderItemVersion>& requestedVersion,
      const platform::NSFileProviderRequest& request,
      platform::FetchCompletion completionHandler) override;

  // An unknown parent means the root. A folder is sent without contents.
  std::shared_ptr<platform::Progress> createItem(
      const platform::ItemPointer& itemTemplate, platform::NSFileProviderItemFields fields,
      const std::optional<platform::URL>& contents,
      platform::NSFileProviderCreateItemOptions options,
      const platform::NSFileProviderRequest& request,
      platform::MutationCompletion completionHandler) override;

  // Sends contents, name and parent as far as their bits are set; every other field counts as done.
  std::shared_ptr<platform::Progress> modifyItem(
      const platform::ItemPointer& item, const platform::NSFileProviderItemVersion& baseVersion,
      platform::NSFileProviderItemFields changedFields,
      const std::optional<platform::URL>& contents,
      platform::NSFileProviderModifyItemOptions options,
      const platform::NSFileProviderRequest& request,
      platform::MutationCompletion completionHandler) override;

  std::shared_ptr<platform::Progress> deleteItem(
      const platform::NSFileProviderItemIdentifier& identifier,
      const platform::NSFileProviderItemVersion& baseVersion,
      platform::NSFileProviderDeleteItemOptions options,
      const platform::NSFileProviderRequest& request,
      platform::DeleteCompletion completionHandler) override;

  // A thumbnail that cannot be had is absent data, never an error.
  std::shared_ptr<platform::Progress> fetchThumbnails(
      std::vector<platform::NSFileProviderItemIdentifier> itemIdentifiers,
      platform::Size requestedSize, platform::PerThumbnailCompletion perThumbnailCompletionHandler,
      platform::ThumbnailsCompletion completionHandler) override;

 private:
  const platform::DomainPointer domain_;
  const std::shared_ptr<platform::NSFileProviderManager> manager_;
  const std::string databaseName_;
  const std::string account_;
};

}  // namespace tulo
