#include "service/edits/LocalNames.h"

#include <fnmatch.h>

#include <algorithm>

namespace tulo {

std::vector<std::string> LocalNames::defaults() {
  return {"*~",
          "*.part",
          "*.crdownload",
          ".*.sw?",
          ".*.sw??",
          "~$*",
          ".~lock.*",
          "*.kate-swp",
          ".DS_Store",
          "Thumbs.db",
          "desktop.ini",
          ".Trashes",
          ".fuse_hidden*",
          ".goutputstream-*",
          ".nfs*",
          "lu*.tmp",
          "4913",
          ".#*",
          "#*#",
          ".Trash-*",
          ".directory"};
}

bool LocalNames::matches(std::string_view name) const {
  const std::string text(name);
  return std::any_of(patterns_.begin(), patterns_.end(), [&](const std::string& pattern) {
    return ::fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
  });
}

}  // namespace tulo
