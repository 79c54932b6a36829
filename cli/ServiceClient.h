// Asks the service behind a path in a mount.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace tulo::cli {

// The domain that the path belongs to. Throws ServiceError when it is in no mount.
std::string domainOfPath(const std::string& path);

// Every account that ever had a service here, running or not.
std::vector<std::string> knownDomains();

using ProgressHandler = std::function<void(const nlohmann::json& progress)>;

// Sends the request to the service of the mount that the path is in, and returns the answer's last
// line; `progress` gets those before it. Throws ServiceError.
nlohmann::json askService(const std::string& path, const nlohmann::json& request,
                          const ProgressHandler& progress = {});
nlohmann::json askDomain(const std::string& domain, const nlohmann::json& request,
                         const ProgressHandler& progress = {});

}  // namespace tulo::cli
