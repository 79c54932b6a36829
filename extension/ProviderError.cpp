#include "extension/ProviderError.h"

#include <algorithm>
#include <array>
#include <string>

#include "bridge/HostBridgeError.h"
#include "extension/ExtensionLog.h"

namespace tulo {
namespace {

using platform::cocoaError;
using platform::fileProviderError;
using platform::NSError;
using platform::NSFileProviderErrorCode;

// The host's kinds are exact words; its messages are for people and decide nothing.
NSError errorForKind(std::string_view kind) {
  if (kind == "unauthorized") return fileProviderError(NSFileProviderErrorCode::notAuthenticated);
  if (kind == "not_found") return fileProviderError(NSFileProviderErrorCode::noSuchItem);
  if (kind == "quota") return fileProviderError(NSFileProviderErrorCode::insufficientQuota);
  if (kind == "disk_full") return cocoaError(platform::NSFileWriteOutOfSpaceError);
  if (kind == "invalid_name") return cocoaError(platform::NSFileWriteInvalidFileNameError);
  if (kind == "network" || kind == "rate_limited" || kind == "locked") {
    return fileProviderError(NSFileProviderErrorCode::serverUnreachable);
  }
  return fileProviderError(NSFileProviderErrorCode::cannotSynchronize);
}

// A failure without a kind is one that passes if its text speaks of somebody at work on the item
// ("bearbeitet": German hosts say "is being edited" so). Not the same words as the kinds: a kind
// "conflict" is for good.
NSError errorForText(std::string_view text) {
  constexpr std::array<std::string_view, 3> passing{"bearbeitet", "locked", "conflict"};
  const bool passes = std::any_of(passing.begin(), passing.end(), [&](std::string_view word) {
    return text.find(word) != std::string_view::npos;
  });
  return fileProviderError(passes ? NSFileProviderErrorCode::serverUnreachable
                                  : NSFileProviderErrorCode::cannotSynchronize);
}

}  // namespace

NSError providerError(const std::exception& error, std::string_view ulid, std::string_view op) {
  const auto* bridgeError = dynamic_cast<const HostBridgeError*>(&error);
  if (bridgeError && bridgeError->isUnreachable()) {
    return fileProviderError(NSFileProviderErrorCode::serverUnreachable);
  }
  const std::string description = bridgeError ? bridgeError->description() : error.what();
  extensionLog().error("%{public}@ failed for %{public}@: %{public}@", {op, ulid, description});
  if (bridgeError && bridgeError->which() == HostBridgeError::Case::remote) {
    return errorForKind(bridgeError->kind());
  }
  return errorForText(description);
}

}  // namespace tulo
