#include "bridge/HostBridgeError.h"

#include <utility>

namespace tulo {
namespace {

std::string describe(HostBridgeError::Case which, const std::string& kind,
                     const std::string& message) {
  switch (which) {
    case HostBridgeError::Case::failed:
      return "failed(\"" + message + "\")";
    case HostBridgeError::Case::remote:
      return "remote(kind: \"" + kind + "\", message: \"" + message + "\")";
    case HostBridgeError::Case::unreachable:
      break;
  }
  return "unreachable";
}

}  // namespace

HostBridgeError::HostBridgeError(Case which, std::string kind, std::string message)
    : case_(which),
      kind_(std::move(kind)),
      message_(std::move(message)),
      description_(describe(case_, kind_, message_)) {}

HostBridgeError HostBridgeError::failed(std::string message) {
  return {Case::failed, {}, std::move(message)};
}

HostBridgeError HostBridgeError::remote(std::string kind, std::string message) {
  return {Case::remote, std::move(kind), std::move(message)};
}

HostBridgeError HostBridgeError::unreachable() {
  return {Case::unreachable, {}, {}};
}

}  // namespace tulo
