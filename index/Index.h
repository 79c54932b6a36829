// The extension's read-only view of the host application's index database.
//
// The host application owns and writes the file; nothing here does. An index is short-lived: each
// request opens its own, asks, and drops it.
//
// Threads: an instance belongs to one request and is not shared. Different instances, also of the
// same file, may be used on different threads at once.
// Errors: reported by absence (no instance, no row, an empty list); the reason goes to the log.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "index/IndexEntry.h"
#include "platform/FileProvider.h"

struct sqlite3;

namespace tulo {

class Index {
 public:
  // The identifier of the application group whose container holds the indexes and the socket.
  static const std::string& appGroup();

  // What the identifiers of the host application's domains begin with.
  static const std::string& domainPrefix();

  // The account that a domain stands for; "primary" for a domain without the prefix.
  static std::string accountId(const platform::NSFileProviderDomain& domain);

  // The file name of the domain's index: "state.db" for the primary account and for domains
  // without the prefix, "state-<account>.db" otherwise. The account is not sanitised.
  static std::string databaseName(const platform::NSFileProviderDomain& domain);

  // Opens the database, read-only; never creates a file. Nothing when there is no container, no
  // file (logged as information: the account has not been synchronised yet), or when SQLite cannot
  // open it.
  static std::unique_ptr<Index> open(const std::string& appGroup = Index::appGroup(),
                                     std::string_view databaseName = "state.db");

  ~Index();
  Index(const Index&) = delete;
  Index& operator=(const Index&) = delete;

  // What is directly inside the folder, or at the top level: the folders by name, then the files by
  // name. Files carry display names that clash with nothing in the folder.
  std::vector<IndexEntry> childrenOfFolder(const std::optional<std::string>& ulid) const;

  // One folder, under its plain name.
  std::optional<IndexEntry> entryForFolder(const std::string& ulid) const;

  // One file, under the display name that the listing of its folder gives it.
  std::optional<IndexEntry> entryForFile(const std::string& ulid) const;

  // SQLite's data version as this connection sees it; 0 when it cannot be read.
  std::int64_t dataVersion() const;

 private:
  struct Close {
    void operator()(sqlite3* handle) const noexcept;
  };
  using Handle = std::unique_ptr<sqlite3, Close>;

  explicit Index(Handle db);

  std::vector<IndexEntry> foldersWithParent(const std::optional<std::string>& ulid) const;
  std::vector<IndexEntry> filesInFolder(const std::optional<std::string>& ulid) const;

  Handle db_;
};

}  // namespace tulo
