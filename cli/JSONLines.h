// Writes JSON Lines to standard output.
//
// Threads: print may be called on any thread; lines are not mixed.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "platform/linux/Mutex.h"

namespace tulo::cli {

class JSONLines {
 public:
  // One object on one line, written out before the call returns. Bytes that are not UTF-8 are shown
  // as U+FFFD.
  void print(const nlohmann::ordered_json& object);

  // Whether every line so far has reached its destination.
  bool isWhole();

 private:
  Mutex mutex_;  // held for each line, so that they keep apart
  bool isWhole_ TULO_GUARDED_BY(mutex_) = true;
};

}  // namespace tulo::cli
