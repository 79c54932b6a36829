// What the host answers: one JSON object on one line.
//
// Threads: pure functions.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "host/account/Account.h"

namespace tulo::host {

// The line, with its line feed, for each outcome. Text that is not UTF-8 is shown with U+FFFD.
std::string successReply();
std::string pathReply(std::string_view path);
std::string ulidReply(std::string_view ulid);
// The accounts by name.
std::string statusReply(const std::map<std::string, AccountStatus>& accounts);
// An empty kind is left out.
std::string failureReply(std::string_view kind, std::string_view message);

}  // namespace tulo::host
