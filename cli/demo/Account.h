// An account as the system sees it: the extension's protocol, one call at a time, each waited for.
//
// Threads: one at a time; the extension's own callbacks come from its workers.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/FileProvider.h"

namespace tulo::cli::demo {

class Account {
 public:
  struct Listing {
    std::vector<platform::ItemPointer> items;
    std::optional<platform::NSError> error;
  };
  struct Answer {
    platform::ItemPointer item;
    std::optional<platform::NSError> error;
  };
  struct Download {
    std::optional<platform::URL> contents;
    platform::ItemPointer item;
    std::optional<platform::NSError> error;
  };
  // Called now and then while a download runs.
  using Watch = std::function<void(const platform::Progress&)>;

  Account(std::shared_ptr<platform::NSFileProviderReplicatedExtension> extension,
          std::shared_ptr<platform::NSFileProviderThumbnailing> thumbnailing);

  Listing list(const std::string& container);
  Answer item(const std::string& identifier);
  Download fetch(const std::string& identifier, const Watch& watch = {});
  Answer createFolder(const std::string& parent, const std::string& name);
  Answer createFile(const std::string& parent, const std::string& name, const std::string& path);
  Answer rename(const platform::NSFileProviderItem& item, const std::string& name);
  Answer move(const platform::NSFileProviderItem& item, const std::string& parent);
  Answer edit(const platform::NSFileProviderItem& item, const std::string& path);
  std::optional<platform::NSError> remove(const std::string& identifier);
  std::optional<platform::Data> thumbnail(const std::string& identifier);

 private:
  Answer create(const platform::ItemPointer& itemTemplate,
                const std::optional<platform::URL>& contents);
  Answer modify(const platform::ItemPointer& changed, platform::NSFileProviderItemFields fields,
                const std::optional<platform::URL>& contents);

  std::shared_ptr<platform::NSFileProviderReplicatedExtension> extension_;
  std::shared_ptr<platform::NSFileProviderThumbnailing> thumbnailing_;
};

}  // namespace tulo::cli::demo
