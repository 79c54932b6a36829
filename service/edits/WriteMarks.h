// What is known of the writes to one file: whether its row has them, and when the last one was.
//
// Threads: every member may be called on any thread.
#pragma once

#include <atomic>

#include "service/base/Time.h"

namespace tulo {

class WriteMarks {
 public:
  // `now`: as good as a write, as far as the last one is asked for.
  explicit WriteMarks(WallTime now) : last_(now) {}

  // Around each write. The file is marked on both sides of it: whoever brings the row up to date in
  // between looks at a file that does not have the bytes yet, and takes only the first mark away.
  class Write {
   public:
    Write(WriteMarks& marks, WallTime now) : marks_(marks) {
      marks_.last_ = now;
      marks_.unsettled_ = true;
    }
    ~Write() { marks_.unsettled_ = true; }
    Write(const Write&) = delete;
    Write& operator=(const Write&) = delete;

   private:
    WriteMarks& marks_;
  };

  // Around bringing the row up to date, begun before the file is looked at. Unless that is done in
  // the end, all stays as it was.
  class Settling {
   public:
    explicit Settling(WriteMarks& marks) : marks_(marks), wanted_(begin(marks)) {}
    ~Settling() {
      if (wanted_ && !done_) marks_.unsettled_ = true;
      --marks_.settling_;
    }
    Settling(const Settling&) = delete;
    Settling& operator=(const Settling&) = delete;

    // Whether there is anything that the row does not have.
    bool isWanted() const { return wanted_; }
    void done() { done_ = true; }

   private:
    static bool begin(WriteMarks& marks) {
      ++marks.settling_;
      return marks.unsettled_.exchange(false);
    }

    WriteMarks& marks_;
    const bool wanted_;
    bool done_ = false;
  };

  // Something was written that may not be in the row yet, or is on its way there.
  bool isUnsettled() const { return unsettled_ || settling_ > 0; }
  WallTime last() const { return last_; }

 private:
  std::atomic<bool> unsettled_ = false;
  std::atomic<int> settling_ = 0;
  std::atomic<WallTime> last_;
};

}  // namespace tulo
