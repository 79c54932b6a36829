// Whose account is behind a container, so that nothing of one account goes to another.
//
// Threads: any thread.
#pragma once

#include <optional>
#include <string>

namespace tulo {

struct AccountIdentity {
  // The host's word for the account, from its index; empty where it gives none, or is not there
  // yet.
  std::string account;
  // The container's path.
  std::string container;
  // Which directory that is, whatever its path; empty when it is not there.
  std::string directory;

  bool operator==(const AccountIdentity&) const = default;
};

// Asks the index, which may be missing.
AccountIdentity identityAt(const std::string& container, const std::string& database);

// Whether both are of one account, as far as can be told: by the host's word; where one of them has
// none by the directory; where one of them has none of those either by its path.
bool areOfOneAccount(const AccountIdentity& one, const AccountIdentity& other);

// What is known of the account of both, where `now` is the later one.
AccountIdentity joined(const AccountIdentity& before, const AccountIdentity& now);

// As a small file. Reading gives nothing where there is none; writing replaces it as a whole, on
// the disk when it returns, and throws ContentError.
std::optional<AccountIdentity> readIdentity(const std::string& path);
void writeIdentity(const std::string& path, const AccountIdentity& identity);

}  // namespace tulo
