// What it means for the rows of an item that the host did as it was asked.
//
// Threads: used inside one transaction in which the node's contents cannot change.
// Errors: DatabaseError.
#pragma once

#include <string>

#include "service/kernel/Acknowledged.h"
#include "service/kernel/Notifier.h"
#include "service/replica/Change.h"
#include "service/replica/ReplicaWriter.h"
#include "service/upload/Plan.h"

namespace tulo {

class Acknowledgement {
 public:
  Acknowledgement(ReplicaWriter& writer, Acknowledged& acknowledged, Notifier& notifier,
                  WallTime now)
      : writer_(writer), acknowledged_(acknowledged), notifier_(notifier), now_(now) {}

  // The answer becomes the base. The change ends, or goes round again if the node changed
  // meanwhile. Returns the contents that are the host's from now on, if there are any.
  ContentId apply(const Plan& plan, const platform::NSFileProviderItem& item);

 private:
  // Another row may have come to have the identifier, from a listing that was faster.
  void mergeTwin(NodeId node, const std::string& identifier);
  void noteBase(const Plan& plan, const platform::NSFileProviderItem& item, Change& change);
  ContentId noteContents(const Plan& plan, const Node& node, Change& change);
  // Whether there is something that the plan did not say.
  bool isMoreToSay(const Plan& plan, const Node& node, const Change& change);

  ReplicaWriter& writer_;
  Acknowledged& acknowledged_;
  Notifier& notifier_;
  const WallTime now_;
};

}  // namespace tulo
