// Asks the service behind a path in a mount.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "service/control/Requests.h"

namespace tulo::cli {

// The domain that the path belongs to. Throws ServiceError when it is in no mount.
std::string domainOfPath(const std::string& path);

// Every account that ever had a service here, running or not.
std::vector<std::string> knownDomains();

using ProgressHandler = std::function<void(const nlohmann::json& progress)>;

// Sends the request to the account's service and returns the answer's last line; `progress` gets
// what the lines before it tell. `fields` is one of the structs of Requests.h, the answer is one of
// Replies.h or StatusReply.h. Throws ServiceError.
nlohmann::json askDomain(const std::string& domain, control::Operation operation,
                         const nlohmann::json& fields = nlohmann::json::object(),
                         const ProgressHandler& progress = {});

}  // namespace tulo::cli
