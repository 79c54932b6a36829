#include "cli/demo/ErrorText.h"

namespace tulo::cli::demo {
namespace {

using Code = platform::NSFileProviderErrorCode;

std::string fileProviderText(std::int64_t code) {
  switch (static_cast<Code>(code)) {
    case Code::notAuthenticated:
      return "not authenticated";
    case Code::filenameCollision:
      return "name taken";
    case Code::syncAnchorExpired:
      return "sync anchor expired";
    case Code::insufficientQuota:
      return "insufficient quota";
    case Code::serverUnreachable:
      return "server unreachable";
    case Code::noSuchItem:
      return "no such item";
    case Code::cannotSynchronize:
      return "cannot synchronise";
  }
  return "error";
}

std::string cocoaText(std::int64_t code) {
  if (code == platform::NSFileWriteInvalidFileNameError) return "invalid file name";
  if (code == platform::NSFileWriteOutOfSpaceError) return "out of space";
  return "error";
}

}  // namespace

std::string errorText(const platform::NSError& error) {
  const bool isFileProvider = error.domain == platform::NSFileProviderErrorDomain;
  return (isFileProvider ? fileProviderText(error.code) : cocoaText(error.code)) + " (" +
         error.domain + " " + std::to_string(error.code) + ")";
}

}  // namespace tulo::cli::demo
