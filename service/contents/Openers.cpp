#include "service/contents/Openers.h"

#include <cerrno>
#include <optional>
#include <utility>

#include "service/base/ServiceLog.h"
#include "service/errors/Errno.h"

namespace tulo {

namespace {

constexpr unsigned kMostFetches = 8;

}  // namespace

void Openers::proceed(Ticket ticket, NodeId node, int process, OpenStep missing) {
  if (!tickets_.arm(ticket)) return;
  const Opening opening{ticket, node, process};
  guarded(opening, [&] { bring(opening, missing); });
}

void Openers::guarded(const Opening& opening, const std::function<void()>& step) try {
  const Doorway::Visit visit(door_);
  if (visit) step();
} catch (const std::exception& error) {
  serviceLog().error("cannot open node %d: %{public}@", {opening.node.number(), error.what()});
  refuse(opening, errnoFor(error));
}

void Openers::attempt(const Opening& opening) {
  OpenAttempt attempt = opener_.attempt(opening.node, opening.verification);
  if (attempt.isAnswered()) return tickets_.answer(opening.ticket, std::move(attempt.answer));
  bring(opening, attempt.step);
}

void Openers::bring(const Opening& opening, OpenStep missing) {
  if (missing == OpenStep::verify) {
    verify(opening);
  } else {
    fetch(opening);
  }
}

void Openers::verify(const Opening& opening) {
  const std::optional<Node> row =
      replica_.read([&](ReplicaReader& reader) { return reader.node(opening.node); });
  if (!row) return refuse(opening, ESTALE);
  // It left the tree meanwhile, so there is nothing to compare it with.
  if (row->parent == kNoNode) return attempt(opening);
  sync_.verifyFile(*row, [self = shared_from_this(), opening](int error) {
    self->guarded(opening, [&] { self->verified(opening, error); });
  });
}

void Openers::verified(Opening opening, int error) {
  opening.verification = error == 0 ? Verification::done : Verification::failed;
  // The kernel must know the size of a new version before the file is open.
  notifier_.afterDelivery([self = shared_from_this(), opening] {
    self->guarded(opening, [&] { self->attempt(opening); });
  });
}

void Openers::fetch(const Opening& opening) {
  if (opening.fetches >= kMostFetches) return refuse(opening, ESTALE);
  if (!policy_.mayDownload(opening.process)) {
    ++denied_;
    return refuse(opening, EACCES);
  }
  downloads_.fetch(opening.node, DownloadPriority::opened,
                   [self = shared_from_this(), opening](int error) {
                     self->guarded(opening, [&] { self->fetched(opening, error); });
                   });
}

void Openers::fetched(Opening opening, int error) {
  if (error != 0) return refuse(opening, error);
  // What was just fetched is as fresh as an open has to be.
  opening.verification = Verification::done;
  ++opening.fetches;
  attempt(opening);
}

void Openers::stop() {
  tickets_.stop();
  door_.close();
}

}  // namespace tulo
