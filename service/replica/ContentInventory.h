// What lies in the folder of contents, whatever the database says: for a start after the database
// was lost.
//
// Errors: ContentError.
#pragma once

#include <string>
#include <vector>

#include "service/replica/ContentStore.h"

namespace tulo::inventory {

struct NamedContents {
  ContentId content;
  std::string path;
  std::string name;
};

// Every file of contents that carries a name: those that the host may not have.
std::vector<NamedContents> named(const ContentStore& store);
// The highest number that a file of contents has; none without any.
ContentId highestNumber(const ContentStore& store);

}  // namespace tulo::inventory
