// What both ends of the control socket need. Private to them.
#pragma once

#include <string>

#include "platform/linux/SocketAddress.h"

namespace tulo::control {

// Throws ServiceError for a path that is too long for a socket.
SocketAddress addressOf(const std::string& path);

bool sendAll(int descriptor, const std::string& text);

class LineReader {
 public:
  LineReader(int descriptor, std::size_t longest) : descriptor_(descriptor), longest_(longest) {}
  // False at the end, after an error, or for a line that is too long.
  bool next(std::string& line);

 private:
  const int descriptor_;
  const std::size_t longest_;
  std::string buffer_;
};

}  // namespace tulo::control
