// A node as the provider is given it, and what of an answer is one.
//
// Threads: pure functions; the item is immutable.
#pragma once

#include <string>

#include "platform/FileProvider.h"
#include "service/replica/Node.h"

namespace tulo {

// The item that is sent: the node as it shall be.
platform::ItemPointer itemOf(const Node& node, const std::string& parentIdentifier);

// Whether the reply carries no more than an identifier, because the host's index did not have the
// row yet.
bool isPlaceholder(const Node& sent, const platform::NSFileProviderItem& item);

}  // namespace tulo
