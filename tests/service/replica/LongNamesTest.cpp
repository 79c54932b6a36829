#include "service/replica/LongNames.h"

#include <string>

#include "service/base/MarkedName.h"
#include "service/replica/ContentRows.h"
#include "service/replica/Journal.h"
#include "service/replica/NodeContents.h"
#include "tests/service/support/ReplicaFixture.h"

namespace tulo::test {
namespace {

class LongNamesTest : public ReplicaFixture {
 protected:
  // A copy as it was once made: refused by the host, or with a request of which nobody knows.
  NodeId addCopy(const std::string& name, bool refused) {
    const NodeId id = add(name, "");
    write([&](ReplicaWriter& writer) {
      const ContentId content = contentRows::next(writer);
      contentRows::add(writer, content, id, true);
      store.create(content, "former");
      nodeContents::set(writer, id, content);
      Change change = journal::fresh(writer, id, {});
      change.contentsChanged();
      refused ? change.standing.refuse() : change.request.made(content, {"root", name});
      journal::put(writer, change);
    });
    return id;
  }

  Change change(NodeId id) {
    return *read([&](ReplicaReader& reader) { return journal::find(reader, id); });
  }

  const std::string mark = " (conflicted copy of here, 2026-11-22)";
  const std::string front = std::string(240, 'n');
  const std::string copy = front + mark + ".txt";
  ContentStore store{directory.path(), directory.path(), CacheLimits()};
};

TEST_F(LongNamesTest, ACopyThatNoFolderCanHoldGetsTheNameOfANewOneAndGoesUpAgain) {
  const NodeId id = addCopy(copy, true);
  EXPECT_EQ(cutLongNames(replica, store), 1U);
  const std::string name = markedName(front + ".txt", mark);
  EXPECT_EQ(row(id)->name, name);
  EXPECT_EQ(row(id)->filename, name);
  EXPECT_EQ(change(id).phase(), Change::Phase::waiting);
  EXPECT_TRUE(change(id).hasContents());
  EXPECT_EQ(ContentStore::nameOf(store.path(row(id)->content)), name);
  EXPECT_EQ(cutLongNames(replica, store), 0U);
}

TEST_F(LongNamesTest, TwoThatAreCutToTheSameNameStayApart) {
  const NodeId one = addCopy(front + "1" + mark + ".txt", true);
  const NodeId two = addCopy(front + "2" + mark + ".txt", false);
  EXPECT_EQ(cutLongNames(replica, store), 2U);
  EXPECT_EQ(row(one)->name, markedName(front + ".txt", mark));
  EXPECT_EQ(row(two)->name, markedName(front + ".txt", mark + " (2)"));
  EXPECT_EQ(change(two).phase(), Change::Phase::waiting);
}

TEST_F(LongNamesTest, WhatCanBeHeldAndWhatTheHostHasStaysAsItIs) {
  const NodeId fits = add(std::string(255, 'f'), "");
  const NodeId known = add(copy, "i:1");
  EXPECT_EQ(cutLongNames(replica, store), 0U);
  EXPECT_EQ(row(fits)->name.size(), 255U);
  EXPECT_EQ(row(known)->name, copy);
}

TEST_F(LongNamesTest, ContentsThatAreGoneDoNotKeepTheServiceFromStarting) {
  const NodeId id = addCopy(copy, true);
  store.remove(row(id)->content);
  EXPECT_EQ(cutLongNames(replica, store), 1U);
  EXPECT_EQ(row(id)->name, markedName(front + ".txt", mark));
}

}  // namespace
}  // namespace tulo::test
