// What the system sees of one item: a row of the index, or the root.
//
// Threads: immutable; may be read on any thread.
// Lifetime: made for each request and kept as long as the system likes.
#pragma once

#include <memory>
#include <optional>

#include "index/IndexEntry.h"
#include "platform/FileProvider.h"

namespace tulo {

class TuloItem final : public platform::NSFileProviderItem {
 public:
  // The root container.
  static std::shared_ptr<const TuloItem> root();

  // The item of a row, under the identifier that its table and ULID give.
  explicit TuloItem(IndexEntry entry);

  // Stores both as they are. Without a row this is a placeholder for an item that the host has made
  // or changed but whose row cannot be read: it looks like the root in all but its identifier.
  TuloItem(std::optional<IndexEntry> entry, platform::NSFileProviderItemIdentifier id);

  TuloItem() = delete;

  platform::NSFileProviderItemIdentifier itemIdentifier() const override;
  platform::NSFileProviderItemIdentifier parentItemIdentifier() const override;
  std::string filename() const override;
  std::optional<platform::UTType> contentType() const override;
  platform::NSFileProviderItemCapabilities capabilities() const override;
  std::optional<std::int64_t> documentSize() const override;
  std::optional<platform::Date> contentModificationDate() const override;
  bool isUploaded() const override;
  bool isDownloaded() const override;
  platform::NSFileProviderItemVersion itemVersion() const override;

 private:
  bool isFile() const { return entry_ && !entry_->isFolder; }

  std::optional<IndexEntry> entry_;
  // Only what was given: an identifier that follows from the row is made when it is asked for, as
  // a listing has many rows and most of them are never asked twice.
  std::optional<platform::NSFileProviderItemIdentifier> id_;
};

}  // namespace tulo
