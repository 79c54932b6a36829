// What the host is to be told of one change.
#pragma once

#include <string>

#include "platform/FileProvider.h"
#include "service/replica/Change.h"
#include "service/replica/Node.h"

namespace tulo {

struct Plan {
  enum class Kind { create, modify, remove };

  Kind kind = Kind::modify;
  Node node;      // as it shall be at the host
  Change change;  // as it was when the plan was made
  std::string parentIdentifier;
  platform::NSFileProviderItemFields fields = 0;

  bool sendsContents() const { return (fields & platform::NSFileProviderItemContents) != 0; }
};

}  // namespace tulo
