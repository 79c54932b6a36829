#include "cli/ServiceClient.h"

#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "service/base/Names.h"
#include "service/base/ServicePaths.h"
#include "service/control/ControlClient.h"
#include "service/control/Replies.h"

namespace tulo::cli {

std::string domainOfPath(const std::string& path) {
  std::array<char, 4096> domain;
  const ssize_t size = ::getxattr(path.c_str(), "user.tulo.domain", domain.data(), domain.size());
  if (size >= 0) return {domain.data(), static_cast<std::size_t>(size)};
  const bool elsewhere = errno == ENODATA || errno == EOPNOTSUPP;
  throw ServiceError(path + ": " + (elsewhere ? "not in a mounted account" : std::strerror(errno)));
}

std::vector<std::string> knownDomains() {
  // Each leaves a directory of this name.
  const std::filesystem::path one = paths::stateDirectory("x");
  std::vector<std::string> domains;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(one.parent_path(), error)) {
    const std::string name = entry.path().filename();
    domains.push_back(names::textBehind(name).value_or(name));
  }
  std::sort(domains.begin(), domains.end());
  return domains;
}

nlohmann::json askDomain(const std::string& domain, control::Operation operation,
                         const nlohmann::json& fields, const ProgressHandler& progress) {
  ControlClient client(paths::controlSocket(domain));
  nlohmann::json last;
  client.ask(control::requestOf(operation, fields).dump(), [&](const std::string& line) {
    nlohmann::json answer = nlohmann::json::parse(line, nullptr, false);
    if (const auto told = control::progressIn(answer)) {
      if (progress) progress(*told);
      return true;
    }
    last = std::move(answer);
    return false;
  });
  if (!last.is_object()) throw ServiceError("the service gave no answer");
  return last;
}

}  // namespace tulo::cli
