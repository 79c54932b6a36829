// What this machine made of one item since the host had the last word on it: a row of the journal.
//
// The base says what the host has, the request what it was asked for and has not answered, the
// standing when it may be asked. What the item shall be is not here but in the node's own row.
//
// Phases, of which the first that is true counts (phase()):
//
//   attention   the host refused it, or failed too often: it waits for the user
//   held        it stays on this machine as long as its name says so
//   sent        a request was made, and what became of it is not known
//   waiting     it is due at a time, and goes up when its turn has come
//
// Transitions, and who makes them:
//
//   from            by                             to         changes
//   (no row)        the constructor                waiting    sequence, due; the base, if the host
//                                                             has the item
//   any             changedAgain                   waiting,   sequence, due; no attempts, reason,
//                   Edits, LocalFiles              or sent    refusal or holding any more
//   any             contentsChanged, deletedHere   the same   what is to go up
//   waiting         standing.hold      Planner     held
//   waiting         request.made       Delivery    sent       the request's contents and place
//   sent            request.answered   Outcome     waiting    forgets the request
//   sent            request.ended                  sent       the host is not at it any more
//   sent            request.hadNoEffect            waiting    keeps what contents it had
//   any             hostHas            listings,   the same   the base
//                                      answers
//   any             hostHasNothing                 the same   the base is empty: to be made again
//   waiting, sent   standing.putOff                the same   due, one attempt more
//   waiting, sent   standing.refuse                attention  the reason
//   attention       standing.tryAgain  the user    waiting,   no attempts
//                                                  or sent
//   any             (the row goes)     Outcome, Discard, Edits: both sides are the same again
//
// Threads: a value; the journal's functions read and write rows inside a session.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "service/base/Time.h"
#include "service/replica/Ids.h"

namespace tulo {

// Where an item is at the host: the identifier of its folder, and its name there.
struct Place {
  std::string parent;
  std::string filename;

  bool operator==(const Place&) const = default;
};

// What the host has of an item.
struct Base {
  // No version of any host: whatever is compared with it has moved on.
  static constexpr const char* kOfAnotherItem = "of another identifier";

  Place place;          // empty while the host does not have it
  std::string version;  // that the contents here grew from

  bool isPlaced() const { return !place.parent.empty(); }
  // The item has taken the place of one that looked the same: only its bytes tell.
  bool isOfAnotherItem() const { return version == kOfAnotherItem; }
};

// What the host was asked for.
class Request {
 public:
  Request() = default;
  Request(bool open, bool unanswered, ContentId contents, Place place)
      : open_(open), unanswered_(unanswered), contents_(contents), place_(std::move(place)) {}

  // It was made, and what became of it is not known.
  bool isOpen() const { return open_; }
  // Nor has it ended, as far as is known here: the host may still be at work on it.
  bool isUnanswered() const { return open_ && unanswered_; }
  // That went up with the last one; they stay as they are until they are forgotten.
  ContentId contents() const { return contents_; }
  // That it gave the item.
  const Place& place() const { return place_; }

  void made(ContentId contents, Place place) { *this = {true, true, contents, std::move(place)}; }
  // It ended, and what the host did is not known for all that.
  void ended() { unanswered_ = false; }
  // What became of it is known, and its contents are let go of.
  void answered() {
    open_ = false;
    contents_ = kNoContent;
  }
  // The host did nothing. The contents are let go of when the next one is made or answered.
  void hadNoEffect() { open_ = false; }

 private:
  bool open_ = false;
  bool unanswered_ = false;
  ContentId contents_ = kNoContent;
  Place place_;
};

// When a change may go up.
class Standing {
 public:
  explicit Standing(WallTime due = {}) : due_(due) {}
  Standing(WallTime due, std::int64_t attempts, bool refused, bool held, std::string reason)
      : due_(due),
        attempts_(attempts),
        refused_(refused),
        held_(held),
        reason_(std::move(reason)) {}

  WallTime due() const { return due_; }
  std::int64_t attempts() const { return attempts_; }
  bool isRefused() const { return refused_; }
  bool isHeld() const { return held_; }
  // Goes up by itself when it is due.
  bool isReady() const { return !refused_ && !held_; }
  // Why the last attempt failed.
  const std::string& reason() const { return reason_; }

  // One attempt was in vain; none before `due`.
  void putOff(WallTime due) {
    ++attempts_;
    due_ = due;
  }
  void failed(std::string reason) { reason_ = std::move(reason); }
  // Waits for the user.
  void refuse() { refused_ = true; }
  // Stays here as long as its name says so.
  void hold() { held_ = true; }
  // As if it had never been tried; still due when it was.
  void tryAgain() {
    refused_ = false;
    attempts_ = 0;
  }
  // The host has it as it was sent.
  void succeeded() {
    attempts_ = 0;
    reason_.clear();
  }
  // It is to go up in another form.
  void startOver(WallTime due) {
    attempts_ = 0;
    due_ = due;
  }

 private:
  WallTime due_{};
  std::int64_t attempts_ = 0;
  bool refused_ = false;
  bool held_ = false;
  std::string reason_;
};

class Change {
 public:
  enum class Phase { waiting, sent, held, attention };

  Change() = default;
  // Of a node that is changed just now.
  Change(NodeId node, std::int64_t sequence, Base base, WallTime due)
      : standing(due), node_(node), sequence_(sequence), base_(std::move(base)) {}
  // As the journal has it.
  Change(NodeId node, std::int64_t sequence, bool deleted, bool contents, Base base,
         Request madeRequest, Standing itsStanding)
      : request(std::move(madeRequest)),
        standing(std::move(itsStanding)),
        node_(node),
        sequence_(sequence),
        deleted_(deleted),
        contents_(contents),
        base_(std::move(base)) {}

  Request request;
  Standing standing;

  NodeId node() const { return node_; }
  // Rises with every change, and orders those that depend on one another.
  std::int64_t sequence() const { return sequence_; }
  bool isDeleted() const { return deleted_; }
  // The contents here are to go up.
  bool hasContents() const { return contents_; }
  const Base& base() const { return base_; }

  Phase phase() const {
    if (standing.isRefused()) return Phase::attention;
    if (standing.isHeld()) return Phase::held;
    return request.isOpen() ? Phase::sent : Phase::waiting;
  }

  // The item was changed here once more: it is tried anew, whatever was said of it before.
  void changedAgain(std::int64_t sequence, WallTime due) {
    sequence_ = sequence;
    standing = Standing(due);
  }
  void contentsChanged() { contents_ = true; }
  // The host has the contents that are here.
  void contentsArrived() { contents_ = false; }
  void deletedHere() {
    deleted_ = true;
    contents_ = false;
  }

  // The host has it in this place and version.
  void hostHas(Base base) { base_ = std::move(base); }
  // The same version in this place.
  void hostHasIn(Place place) { base_.place = std::move(place); }
  void hostHasNothing() { base_ = {}; }
  // This change goes on from where the other one stood with the host, in its turn.
  void takeOver(const Change& other) {
    base_ = other.base_;
    sequence_ = other.sequence_;
  }

 private:
  NodeId node_ = kNoNode;
  std::int64_t sequence_ = 0;
  bool deleted_ = false;
  bool contents_ = false;
  Base base_;
};

}  // namespace tulo
