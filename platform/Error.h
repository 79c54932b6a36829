// The system's error value and the codes that this project uses.
//
// Threads: plain values, copied freely.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tulo::platform {

inline constexpr std::string_view NSFileProviderErrorDomain = "NSFileProviderErrorDomain";
inline constexpr std::string_view NSCocoaErrorDomain = "NSCocoaErrorDomain";

// Raw values of the file-provider error domain.
enum class NSFileProviderErrorCode : std::int64_t {
  notAuthenticated = -1000,
  filenameCollision = -1001,
  syncAnchorExpired = -1002,
  insufficientQuota = -1003,
  serverUnreachable = -1004,
  noSuchItem = -1005,
  cannotSynchronize = -2005,
};

// Raw values of the Cocoa error domain.
inline constexpr std::int64_t NSFileWriteInvalidFileNameError = 514;
inline constexpr std::int64_t NSFileWriteOutOfSpaceError = 640;

// An error as it is handed to the system. An absent userInfo is distinct from an empty one.
struct NSError {
  std::string domain;
  std::int64_t code = 0;
  std::optional<std::map<std::string, std::string>> userInfo;

  bool operator==(const NSError&) const = default;
};

// A file-provider error with an empty user-info dictionary.
inline NSError fileProviderError(NSFileProviderErrorCode code) {
  return {std::string(NSFileProviderErrorDomain), static_cast<std::int64_t>(code),
          std::map<std::string, std::string>{}};
}

// A Cocoa error without a user-info dictionary.
inline NSError cocoaError(std::int64_t code) {
  return {std::string(NSCocoaErrorDomain), code, std::nullopt};
}

}  // namespace tulo::platform
