// Lists one container to the system, and says whether anything in the index has changed.
//
// A listing comes in one page, on the calling thread. Changes are not tracked item by item: the
// sync anchor is the extension's version and the index's data version, and whenever it differs from
// the system's, the system is told that its anchor has expired and lists again.
//
// Threads: immutable; may be called on any thread, several calls at a time. Each call opens an
// index of its own and closes it before it returns.
#pragma once

#include <string>

#include "platform/FileProvider.h"

namespace tulo {

class DirectoryEnumerator final : public platform::NSFileProviderEnumerator {
 public:
  DirectoryEnumerator(platform::NSFileProviderItemIdentifier containerItemIdentifier,
                      std::string databaseName);
  DirectoryEnumerator() = delete;

  // Does nothing: there is nothing to stop.
  void invalidate() override;

  // Ignores the page. A container that is no folder lists as empty, and so does any container while
  // the index cannot be opened.
  void enumerateItems(const std::shared_ptr<platform::NSFileProviderEnumerationObserver>& observer,
                      const platform::NSFileProviderPage& startingAtPage) override;

  void enumerateChanges(const std::shared_ptr<platform::NSFileProviderChangeObserver>& observer,
                        const platform::NSFileProviderSyncAnchor& fromSyncAnchor) override;

  // Calls the handler before it returns. The anchor is never absent.
  void currentSyncAnchor(
      const std::function<void(std::optional<platform::NSFileProviderSyncAnchor>)>&
          completionHandler) override;

  // The version in the main bundle, "0" if it has none. Read once in the life of the process.
  static const std::string& extensionVersion();

 private:
  platform::NSFileProviderSyncAnchor anchor() const;

  const platform::NSFileProviderItemIdentifier container_;
  const std::string databaseName_;
};

}  // namespace tulo
