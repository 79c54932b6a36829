// What a write is about to make of a file or folder, told before it is done: after a crash in
// between it is recognised by that. The table `host_intents`.
//
// Threads: not thread-safe; the account guards it. Errors: sqlite::DatabaseError.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/folder/Node.h"
#include "host/index/IndexDatabase.h"

namespace tulo::host {

struct Intent {
  std::string ulid;
  std::string parent;
  std::string diskName;
  std::string shownName;
};

class Intents {
 public:
  // What a new database needs for it.
  static const std::string_view tables;

  // The database must outlive the object.
  explicit Intents(IndexDatabase& database) : database_(database) {}

  // Announces, durably with the next commit, that what has the node's fingerprint is about to
  // become `node`, shown as `shownName`.
  void announce(const Node& node, std::string_view shownName);
  std::optional<Intent> find(const Fingerprint& fingerprint);
  void forgetAll();

 private:
  IndexDatabase& database_;
};

}  // namespace tulo::host
