// Opens the files whose contents are here, and says of the others what is missing.
//
// Each attempt reads the row once and decides once, with the gate held from the reading until the
// open file is registered.
//
// Threads: every member may be called on any thread.
// Errors: what the replica throws.
#pragma once

#include <memory>

#include "service/contents/OpenDecision.h"
#include "service/contents/OpenFile.h"
#include "service/contents/RecentUse.h"
#include "service/listing/Sync.h"

namespace tulo {

// What came of an attempt to open a file.
struct OpenAttempt {
  OpenStep step = OpenStep::open;
  OpenAnswer answer;  // for what was opened or refused

  // Otherwise something has to be waited for.
  bool isAnswered() const { return step == OpenStep::open || step == OpenStep::refuse; }
};

class FileOpener {
 public:
  FileOpener(Replica& replica, Sync& sync, OpenFiles& openFiles, const ContentStore& store,
             RecentUse& use)
      : replica_(replica), sync_(sync), openFiles_(openFiles), store_(store), use_(use) {}

  OpenAttempt attempt(NodeId node, Verification verification);
  // Opens a file whose contents are of no interest. Null when it is gone. The gate is held.
  std::unique_ptr<OpenFile> openAsIs(NodeId node);
  // A file that was made just now.
  std::unique_ptr<OpenFile> openNew(const Entry& entry);

 private:
  bool isCurrent(NodeId folder);
  std::unique_ptr<OpenFile> handle(NodeId node, ContentId content, ContentState state,
                                   std::int64_t size);

  Replica& replica_;
  Sync& sync_;
  OpenFiles& openFiles_;
  const ContentStore& store_;
  RecentUse& use_;
};

}  // namespace tulo
