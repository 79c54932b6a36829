// What an account remembers about itself from one run to the next, in its index.
//
// Threads: not thread-safe; the account guards it. Errors: sqlite::DatabaseError.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/index/IndexDatabase.h"

namespace tulo::host {

class IndexState {
 public:
  // The database must outlive the object.
  explicit IndexState(IndexDatabase& database) : database_(database) {}

  std::optional<std::string> value(std::string_view key);
  void set(std::string_view key, std::string_view value);

  // Somebody is, until it is said otherwise.
  bool isSignedIn();
  void setSignedIn(bool signedIn);

 private:
  IndexDatabase& database_;
};

}  // namespace tulo::host
