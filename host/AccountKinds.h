// Which kinds of account there are, and how each is made.
#pragma once

#include <memory>
#include <variant>

#include "host/account/Account.h"
#include "host/account/AccountParts.h"
#include "host/folder/FolderAccount.h"

namespace tulo::host {

// Where an account's files are; which of these it is decides the kind.
using AccountSource = std::variant<FolderSource>;

// Throws StartError for a source that cannot be served.
std::unique_ptr<Account> makeAccount(const AccountSource& source, const AccountParts& parts);

}  // namespace tulo::host
