// How the host reports that something cannot be done.
//
// An OperationError ends one request and becomes its failed reply; a StartError ends the attempt to
// serve and becomes the command's error message.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace tulo::host {

// The kinds that a failed reply of this host carries. The first seven are known to the extension;
// every other one reaches the user as "cannot synchronise".
namespace kind {
inline constexpr std::string_view unauthorized = "unauthorized";
inline constexpr std::string_view notFound = "not_found";
inline constexpr std::string_view quota = "quota";
inline constexpr std::string_view diskFull = "disk_full";
inline constexpr std::string_view invalidName = "invalid_name";
inline constexpr std::string_view locked = "locked";
inline constexpr std::string_view network = "network";
inline constexpr std::string_view badRequest = "bad_request";
inline constexpr std::string_view unsupported = "unsupported";
inline constexpr std::string_view io = "io";
}  // namespace kind

class OperationError : public std::runtime_error {
 public:
  OperationError(std::string_view kind, const std::string& message)
      : std::runtime_error(message), kind_(kind) {}

  const std::string& kind() const { return kind_; }

 private:
  std::string kind_;
};

// What was asked is not a request of this host, or contradicts itself; the message says what was
// expected.
class BadRequest : public OperationError {
 public:
  explicit BadRequest(const std::string& message) : OperationError(kind::badRequest, message) {}
};

class StartError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The failure that a system call's error number stands for; `what` says what was being done.
OperationError systemError(int number, std::string_view what);

// `number` in words.
std::string errorText(int number);

}  // namespace tulo::host
