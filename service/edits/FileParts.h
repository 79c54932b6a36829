// What the contents of files need of the rest of the service.
//
// Lifetime: outlives every WritableFile that it was given to.
#pragma once

#include "service/edits/QuietTime.h"
#include "service/kernel/OpenFiles.h"
#include "service/replica/ContentStore.h"
#include "service/replica/Replica.h"

namespace tulo {

struct FileParts {
  Replica& replica;
  ContentStore& store;
  OpenFiles& openFiles;
  QuietTime quiet;
};

}  // namespace tulo
