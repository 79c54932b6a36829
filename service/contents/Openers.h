// Brings a file here for whoever waits to open it: asks whether it is still the host's, has its
// contents downloaded, and tries again.
//
// An opener who gives up leaves the download running. After a download the row is read anew: the
// file may be evicted for the next one in this very moment, or replaced at the host.
//
// Threads: every member may be called on any thread; completions come on any thread.
// Lifetime: held by a shared pointer, because what is waited for may end after stop(). Nothing that
// was handed in is touched from then on.
// Errors: the errno of the completion.
#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "service/contents/Doorway.h"
#include "service/contents/DownloadPolicy.h"
#include "service/contents/Downloads.h"
#include "service/contents/FileOpener.h"
#include "service/contents/OpenTickets.h"
#include "service/kernel/Notifier.h"
#include "service/listing/Sync.h"
#include "service/replica/Replica.h"

namespace tulo {

class Openers : public std::enable_shared_from_this<Openers> {
 public:
  using Ticket = OpenTickets::Ticket;

  Openers(Replica& replica, Sync& sync, Notifier& notifier, DownloadPolicy& policy,
          FileOpener& opener, Downloads& downloads)
      : replica_(replica),
        sync_(sync),
        notifier_(notifier),
        policy_(policy),
        opener_(opener),
        downloads_(downloads) {}

  // The completion is not called before proceed().
  Ticket begin(OpenCompletion completion) { return tickets_.add(std::move(completion)); }
  // `missing`: what the attempt to open it at once said.
  void proceed(Ticket ticket, NodeId node, int process, OpenStep missing);
  // The opener gave up: EINTR.
  void cancel(Ticket ticket) { tickets_.cancel(ticket); }
  // Whoever waits is told EINTR.
  void stop();

  // How often a program was kept from causing a download.
  std::uint64_t denied() const { return denied_; }

 private:
  struct Opening {
    Ticket ticket = 0;
    NodeId node = kNoNode;
    int process = 0;
    Verification verification = Verification::none;
    unsigned fetches = 0;
  };

  void attempt(const Opening& opening);
  void bring(const Opening& opening, OpenStep missing);
  void verify(const Opening& opening);
  void verified(Opening opening, int error);
  void fetch(const Opening& opening);
  void fetched(Opening opening, int error);
  void refuse(const Opening& opening, int error) { tickets_.answer(opening.ticket, {error, {}}); }
  // What it throws is the answer.
  void guarded(const Opening& opening, const std::function<void()>& step);

  Replica& replica_;
  Sync& sync_;
  Notifier& notifier_;
  DownloadPolicy& policy_;
  FileOpener& opener_;
  Downloads& downloads_;

  OpenTickets tickets_;
  // Whoever goes on with an opening is inside.
  Doorway door_;
  std::atomic<std::uint64_t> denied_ = 0;
};

}  // namespace tulo
