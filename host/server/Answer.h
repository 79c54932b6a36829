// What becomes of a request.
#pragma once

#include <string>

namespace tulo::host {

struct Answer {
  // With silence nothing is said until the peer goes.
  enum class Manner { reply, hangUp, silence };
  Manner manner = Manner::reply;
  // The reply with its line feed.
  std::string line;
};

}  // namespace tulo::host
