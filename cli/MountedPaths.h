// What paths on the command line are to the service behind them.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace tulo::cli {

// Whether a path may name something that was deleted in the mount.
enum class Deleted { isAnError, isMeant };

// For each account the part of a request that names the paths: "nodes", and "deleted" for what is
// not there any more. Throws ServiceError for a path that is in no mounted account, or not there.
std::map<std::string, nlohmann::json> namedByDomain(const std::vector<std::string>& paths,
                                                    Deleted deleted);

}  // namespace tulo::cli
