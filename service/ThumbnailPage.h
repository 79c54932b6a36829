// The files of a folder as the desktop's thumbnails want them: by the provider's identifier, and
// where a program finds them.
//
// Threads: inside the reading session that is given.
// Errors: DatabaseError.
#pragma once

#include <string>
#include <vector>

#include "service/desktop/ThumbnailMisses.h"
#include "service/replica/ReplicaReader.h"

namespace tulo {

// The host's files among the next children of the folder after `after`, which goes on to the last
// one that was looked at.
std::vector<ThumbnailFile> thumbnailPage(ReplicaReader& reader, const std::string& mountPoint,
                                         NodeId folder, NodeId& after);

}  // namespace tulo
