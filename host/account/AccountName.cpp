#include "host/account/AccountName.h"

#include <string_view>

#include "host/base/HostError.h"
#include "host/base/HostLog.h"

namespace tulo::host {

namespace {

constexpr std::size_t longestName = 200;

}  // namespace

void requireFurtherAccountName(const std::string& name) {
  const std::string quotedName = inQuotes(name);
  if (name.empty() || name.size() > longestName) {
    throw StartError("the account name " + quotedName + " must have 1 to " +
                     std::to_string(longestName) + " bytes");
  }
  if (name == primaryAccount) {
    throw StartError("the account \"primary\" is the one of --root");
  }
  if (name.find_first_of(std::string_view("/?#%\0", 5)) != std::string::npos) {
    throw StartError("the account name " + quotedName + " must not contain /, ?, #, % or NUL");
  }
}

std::string indexFileName(const std::string& account) {
  return account == primaryAccount ? "state.db" : "state-" + account + ".db";
}

}  // namespace tulo::host
