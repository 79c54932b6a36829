// What paths on the command line are to the service behind them.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "service/control/Requests.h"

namespace tulo::cli {

// Whether a path may name something that was deleted in the mount.
enum class Deleted { isAnError, isMeant };

// For each account the request that names the paths. Throws ServiceError for a path that is in no
// mounted account, or not there.
std::map<std::string, control::ChangesRequest> namedByDomain(const std::vector<std::string>& paths,
                                                             Deleted deleted);

}  // namespace tulo::cli
