// What can go wrong between the extension and the host application.
#pragma once

#include <exception>
#include <string>

namespace tulo {

// A plain value with one of three cases.
class HostBridgeError : public std::exception {
 public:
  enum class Case {
    failed,       // it went wrong here, or the host reported a failure without naming a kind
    remote,       // the host reported a failure and named its kind
    unreachable,  // the host could not be reached at all
  };

  static HostBridgeError failed(std::string message);
  static HostBridgeError remote(std::string kind, std::string message);
  static HostBridgeError unreachable();

  Case which() const { return case_; }
  bool isUnreachable() const { return case_ == Case::unreachable; }

  // The host's failure kind; empty unless the case is remote.
  const std::string& kind() const { return kind_; }
  // Empty when the case is unreachable.
  const std::string& message() const { return message_; }

  // The case with its payload: failed("…"), remote(kind: "…", message: "…") or unreachable. The
  // payload stands in it verbatim, nothing escaped.
  const std::string& description() const { return description_; }
  const char* what() const noexcept override { return description_.c_str(); }

 private:
  HostBridgeError(Case which, std::string kind, std::string message);

  Case case_;
  std::string kind_;
  std::string message_;
  std::string description_;
};

}  // namespace tulo
