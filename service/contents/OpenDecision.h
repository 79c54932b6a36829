// Whether a file can be opened now, told from its row.
//
// Threads: a pure function.
#pragma once

#include <optional>

#include "service/replica/ReplicaReader.h"

namespace tulo {

enum class OpenStep {
  open,    // what it needs is here
  refuse,  // it cannot be opened
  verify,  // the host has to be asked first whether it is still what is known here
  fetch,   // its contents have to come first
};

struct OpenDecision {
  OpenStep step = OpenStep::open;
  int error = 0;  // why it is refused
};

// What is known of whether the row is what the host has.
enum class Verification {
  none,
  failed,  // the host was asked in vain
  done,    // as fresh as an open has to be
};

OpenDecision decideOpen(const std::optional<OpenLookup>& row, Verification verification);

}  // namespace tulo
