// How the mount is left: what programs still have open is not cut off unseen, and what they wrote
// through mappings is handed over before.
//
// Threads: every member may be called on any thread, while requests are served.
// Errors: what stands in the way is the reply; at the end of the service it is logged.
#pragma once

#include "platform/linux/Mutex.h"
#include "service/base/Time.h"
#include "service/control/Replies.h"
#include "service/control/Requests.h"
#include "service/kernel/OpenFiles.h"
#include "service/mount/Mount.h"

namespace tulo {

class Departure {
 public:
  // How long programs with a file open for writing are waited for that cannot be told to go.
  static constexpr milliseconds kGrace{10000};

  Departure(const Mount& mount, const OpenFiles& openFiles, Notifier& notifier)
      : mount_(mount), openFiles_(openFiles), notifier_(notifier) {}

  // Somebody asks for it. Good: the mount is away, or what is asked for goes on by itself. The
  // counts are left to the caller.
  control::UnmountReply leave(const control::UnmountRequest& request);

  // The system wants the service to end, which nobody may refuse: gives those who write up to
  // `grace`, and has the kernel hand over what it has.
  void prepareEnd(milliseconds grace = kGrace);

  // No request is served any more. Whoever is in one of the above stops waiting.
  void ended() TULO_EXCLUDES(mutex_);

  // Exists from an order to leave until it was answered.
  class Answer {
   public:
    explicit Answer(Departure& departure) : departure_(departure) { departure.count(1); }
    ~Answer() { departure_.count(-1); }
    Answer(const Answer&) = delete;
    Answer& operator=(const Answer&) = delete;

   private:
    Departure& departure_;
  };
  // Returns when every order was answered.
  void awaitAnswers() TULO_EXCLUDES(mutex_);

 private:
  control::UnmountReply leaveIfUnused();
  control::UnmountReply leaveLazily();
  control::UnmountReply leaveByForce();
  std::vector<control::UsingProgram> programs() const;
  void awaitWriters(milliseconds grace) TULO_EXCLUDES(mutex_);
  // Has the kernel hand over what was written through mappings; false when that took too long.
  bool writeBack();
  bool writeBackOutOfPlace();
  // True when that is so within the time.
  bool hasEnded(milliseconds patience) TULO_EXCLUDES(mutex_);
  void count(int difference) TULO_EXCLUDES(mutex_);

  const Mount& mount_;
  const OpenFiles& openFiles_;
  Notifier& notifier_;
  Mutex mutex_;  // a leaf
  Condition changed_;
  bool ended_ TULO_GUARDED_BY(mutex_) = false;
  int answers_ TULO_GUARDED_BY(mutex_) = 0;
};

}  // namespace tulo
