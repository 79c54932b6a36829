// A line on standard error that is written over as things go on, and gone in the end. Only on a
// terminal: elsewhere nothing is written.
//
// Threads: one thread at a time.
#pragma once

#include <string>

namespace tulo::cli {

class OverwrittenLine {
 public:
  OverwrittenLine() = default;
  ~OverwrittenLine();
  OverwrittenLine(const OverwrittenLine&) = delete;
  OverwrittenLine& operator=(const OverwrittenLine&) = delete;

  void show(const std::string& text);

 private:
  bool shown_ = false;
};

}  // namespace tulo::cli
