#include "cli/OverwrittenLine.h"

#include <unistd.h>

#include <cstdio>

namespace tulo::cli {

OverwrittenLine::~OverwrittenLine() {
  if (shown_) std::fprintf(stderr, "\r\033[K");
}

void OverwrittenLine::show(const std::string& text) {
  if (isatty(STDERR_FILENO) == 0) return;
  std::fprintf(stderr, "\r%s\033[K", text.c_str());
  shown_ = true;
}

}  // namespace tulo::cli
