// A completion block of the system's that outlives the call which brought it.
#pragma once

#import <Foundation/Foundation.h>

#include <Block.h>

#include <atomic>
#include <memory>

namespace tulo::apple {

// Copies of it share the one block. The block is copied at once, called by the first call and
// released right after it, so that nothing which it holds lives on with the extension; a second
// call does nothing.
//
// Threads: may be called on any thread.
template <typename... Arguments>
class Completion {
 public:
  using Block = void (^)(Arguments...);

  explicit Completion(Block block) : state_(std::make_shared<State>(block)) {}

  void operator()(Arguments... arguments) const {
    if (const Block block = state_->take()) {
      block(arguments...);
      Block_release(block);
    }
  }

 private:
  class State {
   public:
    explicit State(Block block) : block_(Block_copy(block)) {}
    State(const State &) = delete;
    State &operator=(const State &) = delete;
    ~State() {
      if (const Block block = take()) Block_release(block);
    }
    Block take() { return block_.exchange(nullptr); }

   private:
    std::atomic<Block> block_;
  };

  std::shared_ptr<State> state_;
};

// A block that may be called any number of times, as long as a copy of this lives.
template <typename... Arguments>
class Callback {
 public:
  using Block = void (^)(Arguments...);

  explicit Callback(Block block) : block_(Block_copy(block)) {}
  Callback(const Callback &other) : block_(Block_copy(other.block_)) {}
  Callback &operator=(const Callback &) = delete;
  ~Callback() { Block_release(block_); }

  void operator()(Arguments... arguments) const { block_(arguments...); }

 private:
  Block block_;
};

}  // namespace tulo::apple
