// One complete listing of a container, as the provider gives it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/FileProvider.h"
#include "service/replica/Node.h"

namespace tulo {

// The properties of an item that the replica keeps.
struct ItemRecord {
  std::string identifier;
  std::string parentIdentifier;
  std::string filename;
  NodeKind kind = NodeKind::file;
  std::int64_t size = 0;
  WallSeconds modified{};
  std::uint64_t capabilities = 0;
  std::string contentVersion;
  std::string metadataVersion;
};

ItemRecord recordOf(const platform::NSFileProviderItem& item);

struct Listing {
  std::vector<ItemRecord> items;
  std::optional<platform::NSError> error;

  // Equal for equal listings, order included; 16 bytes.
  std::string digest() const;
};

// The state of the source that a listing was made in.
struct ListingStamp {
  std::uint64_t generation = 0;
  std::string fingerprint;  // empty: cannot be recognised again
};

using ExtensionPointer = std::shared_ptr<platform::NSFileProviderReplicatedExtension>;
using ListingCompletion = std::function<void(Listing)>;

// Lists all pages. The completion comes once, on a thread of the provider's choosing.
void enumerate(platform::NSFileProviderReplicatedExtension& extension,
               const std::string& containerIdentifier, ListingCompletion completion);

}  // namespace tulo
