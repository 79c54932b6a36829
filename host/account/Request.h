// What can be asked of the host: the five operations of the extension, and those by which this
// host's own command steers it.
//
// Threads: pure functions.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace tulo::host {

struct FetchRequest {
  std::string account;
  std::string ulid;
};

struct ThumbnailRequest {
  std::string account;
  std::string ulid;
};

struct CreateRequest {
  std::string account;
  std::string name;
  // None: the top level.
  std::optional<std::string> parent;
  // The staged contents. None: a folder is created.
  std::optional<std::string> path;
};

struct ModifyRequest {
  std::string account;
  std::string ulid;
  bool isFolder = false;
  std::optional<std::string> path;
  std::optional<std::string> name;
  // None: no move. Present but none: a move to the top level.
  std::optional<std::optional<std::string>> parent;
};

struct DeleteRequest {
  std::string account;
  std::string ulid;
  bool isFolder = false;
  // When it came.
  std::chrono::steady_clock::time_point came = std::chrono::steady_clock::now();
};

// "lock" and "unlock": sets or clears the user who holds the lock of a file, named by its path on
// the disk below the account's folder.
struct LockRequest {
  std::string account;
  std::string path;
  std::optional<std::int64_t> user;
};

// "login" and "logout".
struct SignInRequest {
  std::string account;
  bool signedIn = false;
};

struct StatusRequest {};

using Request = std::variant<FetchRequest, ThumbnailRequest, CreateRequest, ModifyRequest,
                             DeleteRequest, LockRequest, SignInRequest, StatusRequest>;

// The "op" of a request.
std::string_view operationName(const Request& request);

// The account that a request names; nothing where it concerns none.
std::optional<std::string> accountOf(const Request& request);

// The path of the staged contents that a request names.
std::optional<std::string> stagedPathOf(const Request& request);

}  // namespace tulo::host
