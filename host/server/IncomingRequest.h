// A connection whose request is still coming in.
//
// Threads: one thread at a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <utility>

#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

class IncomingRequest {
 public:
  using Clock = std::chrono::steady_clock;

  enum class State {
    incomplete,
    whole,
    // The peer has gone, or sends without end.
    over,
  };

  // `connection` is non-blocking.
  IncomingRequest(FileDescriptor connection, Clock::time_point deadline);

  int descriptor() const { return connection_.get(); }
  Clock::time_point deadline() const { return deadline_; }

  // Reads what has arrived.
  State receive();

  // What a whole request leaves: the connection for the reply, and the text without its line feed.
  // One that was too long is blanks, one more than are allowed.
  FileDescriptor takeConnection() { return std::move(connection_); }
  std::string takeText() { return std::move(text_); }

 private:
  bool isWhole(bool atEnd);

  FileDescriptor connection_;
  Clock::time_point deadline_;
  std::string text_;
  std::size_t discarded_ = 0;
};

}  // namespace tulo::host
