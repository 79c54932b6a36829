#include "service/replica/Journal.h"

#include <gtest/gtest.h>

#include "service/replica/JournalTree.h"
#include "tests/service/support/ReplicaFixture.h"
#include "tests/service/support/Times.h"

namespace tulo::test {
namespace {

class JournalTest : public ReplicaFixture {
 protected:
  // Begins a change, lets the test adjust it, and puts it into the journal.
  Change begin(NodeId id, std::int64_t due = 0,
               const std::function<void(Change&)>& adjust = nullptr) {
    Change change;
    write([&](ReplicaWriter& writer) {
      change = journal::begin(writer, *writer.node(id), at(due));
      if (adjust) adjust(change);
      journal::put(writer, change);
    });
    return change;
  }

  // Still due when it was.
  static void failTimes(Change& change, int times) {
    for (int i = 0; i < times; ++i)
      change.standing.putOff(change.standing.due());
  }

  std::optional<Change> find(NodeId id) {
    return read([&](ReplicaReader& reader) { return journal::find(reader, id); });
  }

  std::vector<NodeId> due(std::int64_t now, std::int64_t limit = 100) {
    std::vector<NodeId> result;
    for (const journal::Due& each : read([&](ReplicaReader& reader) {
           return journal::due(reader, at(now), at(-1), kNoNode, limit);
         })) {
      result.push_back(each.node);
    }
    return result;
  }
};

TEST_F(JournalTest, ARowSaysWhatTheHostHas) {
  const NodeId id = add("a.txt", "i:1");
  const Change change = begin(id, 500);
  EXPECT_EQ(change.base().place.parent, "root");
  EXPECT_EQ(change.base().place.filename, "a.txt");
  EXPECT_EQ(change.base().version, "v1");
  EXPECT_EQ(change.standing.due(), at(500));
}

TEST_F(JournalTest, WhatTheHostDoesNotHaveHasNoBase) {
  const Change change = begin(add("a.txt", ""));
  EXPECT_TRUE(change.base().place.parent.empty());
  EXPECT_TRUE(change.base().place.filename.empty());
  EXPECT_TRUE(change.base().version.empty());
}

TEST_F(JournalTest, AllFieldsSurvive) {
  const NodeId id = add("a.txt", "i:1");
  begin(id, 500, [](Change& change) {
    change.deletedHere();
    change.contentsChanged();
    change.request.made(ContentId(17), {"p", std::string("n\0m", 3)});
    failTimes(change, 3);
    change.standing.refuse();
    change.standing.hold();
    change.standing.failed("why");
  });
  const Change found = *find(id);
  EXPECT_TRUE(found.isDeleted() && found.hasContents() && found.request.isOpen());
  EXPECT_TRUE(found.standing.isRefused() && found.standing.isHeld());
  EXPECT_EQ(found.standing.attempts(), 3);
  EXPECT_EQ(found.request.contents(), ContentId(17));
  EXPECT_EQ(found.request.place().parent, "p");
  EXPECT_EQ(found.request.place().filename, std::string("n\0m", 3));
  EXPECT_EQ(found.standing.reason(), "why");
}

TEST_F(JournalTest, ALaterChangeKeepsTheBaseOfTheFirst) {
  const NodeId id = add("a.txt", "i:1");
  const Change first = begin(id, 100, [](Change& change) { change.contentsChanged(); });
  write([&](ReplicaWriter& writer) {
    Node node = *writer.node(id);
    node.name = node.filename = "b.txt";
    writer.update(node);
  });
  const Change second = begin(id, 200);
  EXPECT_EQ(second.base().place.filename, "a.txt");
  EXPECT_TRUE(second.hasContents());
  EXPECT_EQ(second.standing.due(), at(200));
  EXPECT_GT(second.sequence(), first.sequence());
}

TEST_F(JournalTest, ANewChangeFreesWhatWasRefusedOrHeld) {
  const NodeId id = add("a.txt", "i:1");
  begin(id, 0, [](Change& change) {
    change.standing.refuse();
    change.standing.hold();
    failTimes(change, 7);
    change.standing.failed("why");
  });
  const Change again = begin(id, 5);
  EXPECT_FALSE(again.standing.isRefused());
  EXPECT_FALSE(again.standing.isHeld());
  EXPECT_EQ(again.standing.attempts(), 0);
  EXPECT_TRUE(again.standing.reason().empty());
}

TEST_F(JournalTest, ARepeatedChangeFreesWhatWasRefusedOrHeld) {
  const NodeId id = add("a.txt", "i:1");
  const Change before = begin(id, 0, [](Change& change) {
    change.standing.refuse();
    change.standing.hold();
    failTimes(change, 7);
    change.standing.failed("why");
  });
  replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
    EXPECT_TRUE(journal::again(writer, id, at(5)));
    EXPECT_FALSE(journal::again(writer, NodeId(id.number() + 1), at(5)));
  });
  const auto after = read([&](ReplicaReader& reader) { return journal::find(reader, id); });
  ASSERT_TRUE(after);
  EXPECT_FALSE(after->standing.isRefused());
  EXPECT_FALSE(after->standing.isHeld());
  EXPECT_EQ(after->standing.attempts(), 0);
  EXPECT_TRUE(after->standing.reason().empty());
  EXPECT_EQ(after->standing.due(), at(5));
  EXPECT_GT(after->sequence(), before.sequence());
}

TEST_F(JournalTest, WhatIsDueAtTheSameTimeComesUpOnceInEachPass) {
  std::vector<NodeId> wanted;
  for (int i = 0; i < 5; ++i) {
    wanted.push_back(add("a" + std::to_string(i), "i:" + std::to_string(i)));
    begin(wanted.back(), 100);
  }
  const NodeId last = add("last", "i:last");
  begin(last, 101);
  wanted.push_back(last);
  std::vector<NodeId> found;
  journal::Due after{at(-1), kNoNode};
  for (bool more = true; more;) {
    const auto batch = read([&](ReplicaReader& reader) {
      return journal::due(reader, at(200), after.due, after.node, 2);
    });
    for (const journal::Due& each : batch)
      found.push_back(each.node);
    more = !batch.empty();
    if (more) after = batch.back();
  }
  EXPECT_EQ(found, wanted);
}

TEST_F(JournalTest, ANewChangeDoesNotForgetThatARequestIsOpen) {
  const NodeId id = add("a.txt", "");
  begin(id, 0, [](Change& change) { change.request.made(ContentId(5), {}); });
  EXPECT_TRUE(begin(id).request.isOpen());
  EXPECT_EQ(begin(id).request.contents(), ContentId(5));
}

TEST_F(JournalTest, SequencesRiseWithEachChange) {
  const Change one = begin(add("a", "i:1"));
  const Change two = begin(add("b", "i:2"));
  const Change again = begin(one.node());
  EXPECT_LT(one.sequence(), two.sequence());
  EXPECT_LT(two.sequence(), again.sequence());
}

TEST_F(JournalTest, OnlyWhatIsDueComesUp) {
  const NodeId now = add("now", "i:1");
  const NodeId later = add("later", "i:2");
  const NodeId refused = add("refused", "i:3");
  const NodeId held = add("held", "i:4");
  begin(now, 100);
  begin(later, 200);
  begin(refused, 0, [](Change& change) { change.standing.refuse(); });
  begin(held, 0, [](Change& change) { change.standing.hold(); });
  EXPECT_TRUE(due(99).empty());
  EXPECT_EQ(due(100), (std::vector<NodeId>{now}));
  EXPECT_EQ(due(200), (std::vector<NodeId>{now, later}));
  EXPECT_EQ(due(200, 1), (std::vector<NodeId>{now}));
}

TEST_F(JournalTest, TheNextDueIsTheFirstThatIsStillToCome) {
  const auto next = [&](std::int64_t now) {
    return read([&](ReplicaReader& reader) { return journal::nextDue(reader, at(now)); });
  };
  EXPECT_FALSE(next(0));
  begin(add("a", "i:1"), 100);
  begin(add("b", "i:2"), 200);
  begin(add("c", "i:3"), 50, [](Change& change) { change.standing.refuse(); });
  EXPECT_EQ(next(0), at(100));
  EXPECT_EQ(next(100), at(200));
  EXPECT_FALSE(next(200));
}

TEST_F(JournalTest, CountsTellWaitingFromRefusedAndLeaveOutWhatIsHeld) {
  begin(add("a", "i:1"));
  begin(add("b", "i:2"));
  begin(add("c", "i:3"), 0, [](Change& change) { change.standing.refuse(); });
  begin(add("d", "i:4"), 0, [](Change& change) { change.standing.hold(); });
  const auto counts = read([](ReplicaReader& reader) { return journal::counts(reader); });
  EXPECT_EQ(counts.pending, 2);
  EXPECT_EQ(counts.attention, 1);
}

TEST_F(JournalTest, RetryHurriesWhatFailedAndNothingElse) {
  const NodeId failed = add("failed", "i:1");
  const NodeId quiet = add("quiet", "i:2");
  const NodeId refused = add("refused", "i:3");
  begin(failed, 9'000, [](Change& change) { failTimes(change, 2); });
  begin(quiet, 9'000);
  begin(refused, 9'000, [](Change& change) {
    change.standing.refuse();
    failTimes(change, 5);
  });
  write([](ReplicaWriter& writer) { journal::retry(writer, at(100), false); });
  EXPECT_EQ(find(failed)->standing.due(), at(100));
  EXPECT_EQ(find(failed)->standing.attempts(), 2);
  EXPECT_EQ(find(quiet)->standing.due(), at(9'000));
  EXPECT_TRUE(find(refused)->standing.isRefused());
  write([](ReplicaWriter& writer) { journal::retry(writer, at(200), true); });
  EXPECT_FALSE(find(refused)->standing.isRefused());
  EXPECT_EQ(find(refused)->standing.attempts(), 0);
  EXPECT_EQ(find(refused)->standing.due(), at(200));
}

TEST_F(JournalTest, RetryTakesTheErrorsBackThatItTriesAgain) {
  const NodeId refused = add("refused", "i:3");
  begin(refused, 0, [](Change& change) { change.standing.refuse(); });
  write([&](ReplicaWriter& writer) {
    writer.setError(refused, "no such name");
    journal::retry(writer, at(1), true);
  });
  EXPECT_TRUE(
      replica.read([&](ReplicaReader& reader) { return reader.node(refused); })->error.empty());
}

TEST_F(JournalTest, HurryTakesTheFoldersAboveAlong) {
  const NodeId folder = add("folder", "");
  const NodeId file = add("file", "", folder);
  const NodeId other = add("other", "");
  for (const NodeId id : {folder, file, other})
    begin(id, 9'000);
  write([&](ReplicaWriter& writer) { journal::hurry(writer, file, at(100)); });
  EXPECT_EQ(find(file)->standing.due(), at(100));
  EXPECT_EQ(find(folder)->standing.due(), at(100));
  EXPECT_EQ(find(other)->standing.due(), at(9'000));
}

TEST_F(JournalTest, ChangesAreFoundByTheirBase) {
  const NodeId one = add("a", "i:1");
  const NodeId two = add("b", "i:2");
  begin(one);
  begin(two);
  const auto there =
      read([](ReplicaReader& reader) { return journal::basedOn(reader, "root", "a"); });
  ASSERT_EQ(there.size(), 1U);
  EXPECT_EQ(there[0].node(), one);
  const auto all = [](ReplicaReader& reader) { return journal::basedIn(reader, "root"); };
  EXPECT_EQ(read(all).size(), 2U);
  EXPECT_TRUE(
      read([&](ReplicaReader& reader) { return journal::anyBasedIn(reader, "root", one); }));
  write([&](ReplicaWriter& writer) { journal::erase(writer, two); });
  EXPECT_FALSE(
      read([&](ReplicaReader& reader) { return journal::anyBasedIn(reader, "root", one); }));
}

}  // namespace
}  // namespace tulo::test
