#include "service/listing/NewRows.h"

#include "service/listing/Reconciler.h"
#include "tests/service/support/EngineFixture.h"

namespace tulo::test {
namespace {

class NewRowsTest : public EngineFixture {};

TEST_F(NewRowsTest, ANewItemInvalidatesItsNameAndTheListing) {
  extension->file("i:1", "a.txt", "hello");
  refresh();
  extension->file("i:2", "b.txt", "b");
  commit();
  refresh();
  const auto told = delivered();
  EXPECT_TRUE(told.has(entryChanged(kRootNode, "b.txt")));
  EXPECT_TRUE(told.has(dataChanged(kRootNode)));
  EXPECT_EQ(told.all.size(), 2U);
}

TEST_F(NewRowsTest, TwoItemsOfOneNameAreBothShownAndTheMarkGoesWithTheOther) {
  extension->folder("f:1", "same.d");
  extension->file("i:1", "same.d", "x");
  ASSERT_EQ(refresh(), 0);
  ASSERT_EQ(names().size(), 2U);
  EXPECT_EQ(names().count("same.d"), 1U);
  const NodeId file = idOf("i:1");
  const NodeId folder = idOf("f:1");
  const NodeId plain = names()["same.d"];
  EXPECT_EQ(row(file)->filename, "same.d");
  extension->remove(plain == file ? "i:1" : "f:1");
  commit();
  refresh();
  EXPECT_EQ(names(), (std::map<std::string, NodeId>{{"same.d", plain == file ? folder : file}}));
}

TEST_F(NewRowsTest, AmongManyNewItemsAMovedOneAndTwoOfOneNameFindTheirPlaces) {
  extension->folder("f:1", "Docs");
  extension->file("i:moved", "moved.txt", "hello");
  refresh();
  const NodeId docs = idOf("f:1");
  const NodeId moved = idOf("i:moved");
  constexpr int kCount = 100;
  for (int i = 0; i < kCount; ++i) {
    const std::string number = std::to_string(i);
    const std::string name = i == 40 ? "n3" : "n" + number;
    extension->file("i:" + number, name, number, "f:1");
  }
  extension->change("i:moved", [](ScriptedItem& item) { item.parent = "f:1"; });
  commit();
  ASSERT_EQ(refresh(docs), 0);
  const auto all = names(docs);
  EXPECT_EQ(all.size(), kCount + 1U);
  EXPECT_EQ(all.at("moved.txt"), moved);
  EXPECT_TRUE(all.at("n3") == idOf("i:3") || all.at("n3") == idOf("i:40"));
  for (int i = 0; i < kCount; ++i) {
    const auto item = node("i:" + std::to_string(i));
    ASSERT_TRUE(item) << i;
    EXPECT_EQ(item->filename, i == 40 ? "n3" : "n" + std::to_string(i));
    EXPECT_EQ(item->size, static_cast<std::int64_t>(std::to_string(i).size()));
    EXPECT_EQ(all.at(item->name), item->id);
  }
}

TEST_F(NewRowsTest, AnItemThatBecomesAFolderGetsAnotherNumber) {
  extension->file("x", "thing", "1");
  refresh();
  const NodeId before = idOf("x");
  extension->folder("x", "thing");
  commit();
  ASSERT_EQ(refresh(), 0);
  ASSERT_EQ(names().size(), 1U);
  EXPECT_NE(names()["thing"], before);
  EXPECT_EQ(row(names()["thing"])->kind, NodeKind::folder);
}

TEST_F(NewRowsTest, OfTwoItemsOfOneIdentifierTheFirstStands) {
  Listing listing;
  for (const char* name : {"first", "second"}) {
    ItemRecord& item = listing.items.emplace_back();
    item.identifier = "i:1";
    item.filename = name;
  }
  Acknowledged acknowledged;
  const Acknowledged::Watch watch(acknowledged);
  Reconciler(engine->replica(), engine->openFiles(), engine->folders(), engine->store())
      .reconcile({kRootNode, listing, "digest", {7, ""}, watch});
  EXPECT_EQ(names().size(), 1U);
  EXPECT_EQ(node("i:1")->filename, "first");
}

TEST_F(NewRowsTest, WhatIsNewInAFolderThatIsKeptIsKept) {
  extension->folder("f:1", "Docs");
  refresh();
  ASSERT_EQ(engine->pins().setPinned(idOf("f:1"), true), 0);
  extension->file("i:1", "a.txt", "hello", "f:1");
  ASSERT_EQ(refresh(idOf("f:1")), 0);
  EXPECT_TRUE(node("i:1")->kept);
}

}  // namespace
}  // namespace tulo::test
