// Writes JSON Lines to standard output.
//
// Threads: print may be called on any thread; lines are not mixed.
#pragma once

#include <mutex>
#include <nlohmann/json_fwd.hpp>

namespace tulo::cli {

class JSONLines {
 public:
  // One object on one line, written out before the call returns. Bytes that are not UTF-8 are shown
  // as U+FFFD.
  void print(const nlohmann::ordered_json& object);

  // Whether every line so far has reached its destination.
  bool isWhole();

 private:
  std::mutex mutex_;  // guards isWhole_ and the order of the output
  bool isWhole_ = true;
};

}  // namespace tulo::cli
