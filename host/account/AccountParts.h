// What every kind of account is made with.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/account/Container.h"
#include "host/base/HostLog.h"
#include "host/index/Ulid.h"

namespace tulo::host {

// Lifetime: what is referred to outlives the account.
struct AccountParts {
  std::string name;
  // The most bytes that its files may have together, where there is such a bound.
  std::optional<std::int64_t> quota;
  const Container& container;
  UlidSource& ulids;
  const HostLog& log;
};

}  // namespace tulo::host
