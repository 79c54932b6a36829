// Ctrl-C, SIGTERM and SIGHUP as something that the demo looks at between its steps, so that it ends
// by unwinding and every owner cleans up after itself.
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>

namespace tulo::cli::demo {

class Interrupted : public std::runtime_error {
 public:
  explicit Interrupted(int signal) : std::runtime_error("interrupted"), signal_(signal) {}

  int signal() const { return signal_; }

 private:
  int signal_;
};

// Takes the three signals over while it lives. Must be made before any other thread, which then
// leaves these signals alone.
//
// Threads: made and destroyed by one thread; check() and wait() on that thread.
class Interruption {
 public:
  Interruption();
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  // The signal that has arrived, 0 if none has.
  int received() const;
  // Throws Interrupted once one of the signals has arrived.
  void check() const;
  // Returns, by throwing Interrupted, when one of the signals arrives.
  [[noreturn]] void wait() const;

  // What to do at once when a signal arrives, on a thread of its own; it ends whatever the demo may
  // be waiting for. An empty function takes it back; that waits for one that is running.
  void setWakeUp(std::function<void()> wakeUp);

 private:
  struct State;

  std::shared_ptr<State> state_;
  std::thread thread_;
};

}  // namespace tulo::cli::demo
