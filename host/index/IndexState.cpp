#include "host/index/IndexState.h"

namespace tulo::host {

using sqlite::StatementUse;
using sqlite::Text;

namespace {

constexpr std::string_view signedOutKey = "signed_out";

}  // namespace

std::optional<std::string> IndexState::value(std::string_view key) {
  sqlite::Statement& statement = database_.reading("SELECT value FROM host_state WHERE key = ?");
  const StatementUse use(statement);
  if (!statement.bind(Text{key}).step()) return std::nullopt;
  return std::string(statement.text(0));
}

void IndexState::set(std::string_view key, std::string_view value) {
  database_.changing("INSERT OR REPLACE INTO host_state(key, value) VALUES(?,?)")
      .bind(Text{key}, Text{value})
      .run();
}

bool IndexState::isSignedIn() {
  return value(signedOutKey) != "yes";
}

void IndexState::setSignedIn(bool signedIn) {
  set(signedOutKey, signedIn ? "no" : "yes");
}

}  // namespace tulo::host
