#include "index/Index.h"
#include "platform/Deployment.h"
#include "platform/Text.h"

// Where an account's index is: fixed names, and functions of the domain alone.

namespace tulo {
namespace {

// The domain's identifier without the prefix, or nothing for a domain outside of it.
std::optional<std::string> accountOf(const platform::NSFileProviderDomain& domain) {
  const std::string& identifier = domain.identifier();
  const auto length = platform::text::lengthOfPrefix(identifier, Index::domainPrefix());
  if (!length) return std::nullopt;
  return identifier.substr(*length);
}

}  // namespace

const std::string& Index::appGroup() {
  static const std::string group =
      std::string(deployment::teamIdentifier).append(".").append(deployment::hostBundleIdentifier);
  return group;
}

const std::string& Index::domainPrefix() {
  static const std::string prefix = std::string(deployment::hostBundleIdentifier) + ".acct.";
  return prefix;
}

std::string Index::accountId(const platform::NSFileProviderDomain& domain) {
  return accountOf(domain).value_or("primary");
}

std::string Index::databaseName(const platform::NSFileProviderDomain& domain) {
  const auto account = accountOf(domain);
  if (!account || *account == "primary") return "state.db";
  return "state-" + *account + ".db";
}

}  // namespace tulo
