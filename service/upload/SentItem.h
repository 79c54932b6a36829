// A node as the provider is given it, and what of an answer is one.
//
// Threads: pure functions; the item is immutable.
#pragma once

#include <cstdint>
#include <string>

#include "platform/FileProvider.h"
#include "service/replica/Node.h"
#include "service/upload/Plan.h"

namespace tulo {

// The item that is sent: the node as it shall be.
platform::ItemPointer itemOf(const Node& node, const std::string& parentIdentifier);

// Whether the reply carries no more than an identifier, because the host's index did not have the
// row yet.
bool isPlaceholder(const Node& sent, const platform::NSFileProviderItem& item);

// Whether what the host shows after it was sent contents of that size is most likely these: the
// next version of the one that they grew from, or a first one. A host may count otherwise, so the
// contrary proves nothing.
bool isAsSent(const Plan& plan, const platform::NSFileProviderItem& item, std::int64_t size);

}  // namespace tulo
