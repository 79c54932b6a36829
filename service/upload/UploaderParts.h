// What the parts of the uploader work with; all of it outlives them.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/FileProvider.h"
#include "service/edits/LocalFiles.h"
#include "service/edits/LocalNames.h"
#include "service/kernel/Acknowledged.h"
#include "service/kernel/Notifier.h"
#include "service/kernel/OpenFiles.h"
#include "service/listing/Belief.h"
#include "service/replica/ContentStore.h"
#include "service/replica/Replica.h"
#include "service/upload/HostActivity.h"

namespace tulo {

struct UploaderParts {
  Replica& replica;
  std::shared_ptr<platform::NSFileProviderReplicatedExtension> extension;
  LocalFiles& files;
  ContentStore& store;
  OpenFiles& openFiles;
  Notifier& notifier;
  Acknowledged& acknowledged;
  LocalNames localNames;
  // Has the contents of a node here; returns 0 or an errno.
  std::function<int(NodeId)> fetch;
  // Something that tells one running host from the next; empty when there is none.
  std::function<std::string()> host = [] { return std::string("host"); };
  // Whether the host is still at something that an earlier connection asked for.
  std::function<HostActivity()> activity = [] { return HostActivity::idle; };
  std::string machine = "this machine";
  // The directory that is shared with the host; empty when there is none.
  std::string container;
  // Has a folder listed again.
  std::function<void(NodeId)> relist;
  // The same, and waits for it; returns 0 or an errno.
  std::function<int(NodeId)> list = [](NodeId) { return 0; };
  Belief belief = Belief();
};

}  // namespace tulo
