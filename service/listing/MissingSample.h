// Which children to ask for before a listing is believed that lacks them.
//
// Threads: any. Errors: what the replica throws.
#pragma once

#include <string>
#include <unordered_set>
#include <vector>

#include "service/listing/Listing.h"
#include "service/replica/Replica.h"

namespace tulo {

// Of the folder's known children, up to two (a folder and a file) that the listing lacks and that
// are not newer.
std::vector<std::string> sampleOfMissing(Replica& replica, NodeId folder, const Listing& listing,
                                         const std::unordered_set<std::string>& newer);

}  // namespace tulo
