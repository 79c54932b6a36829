// An engine whose changes go up step by step, by a clock that the test moves.
#pragma once

#include <fcntl.h>

#include <string>
#include <vector>

#include "service/edits/Edits.h"
#include "service/replica/Journal.h"
#include "service/upload/Uploader.h"
#include "tests/service/support/EngineFixture.h"
#include "tests/service/support/Times.h"

namespace tulo::test {

class WritingFixture : public EngineFixture {
 protected:
  using Mutation = ScriptedExtension::Mutation;
  using Kind = ScriptedExtension::Mutation::Kind;
  static constexpr milliseconds kQuiet{1000};

  WritingFixture() {
    options.readWrite = true;
    options.quiet = kQuiet;
    options.clock = [this] { return clock; };
    // There is a host.
    writeFile(directory.file("fp.sock"), "");
    reopen();
    refresh();
  }

  // Changes, as programs make them.

  EditResult make(const std::string& name, NodeId folder = kRootNode) {
    return engine->edits().makeFile(folder, name, 0644);
  }

  NodeId makeFolder(const std::string& name, NodeId folder = kRootNode) {
    const EditResult made = engine->edits().makeFolder(folder, name);
    EXPECT_EQ(made.error, 0);
    return made.entry.id;
  }

  // A program that opens the file, writes all of it anew and closes it.
  void write(NodeId id, const std::string& bytes) {
    const auto file = open(id);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->truncate(0), 0);
    EXPECT_EQ(file->write(bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    close(id);
  }

  NodeId makeFile(const std::string& name, const std::string& bytes, NodeId folder = kRootNode) {
    const EditResult made = make(name, folder);
    EXPECT_EQ(made.error, 0);
    if (!bytes.empty()) write(made.entry.id, bytes);
    return made.entry.id;
  }

  std::shared_ptr<WritableFile> open(NodeId id) {
    const OpenedFile opened = engine->files().open(id);
    EXPECT_EQ(opened.error, 0);
    return opened.file;
  }

  void close(NodeId id) {
    EXPECT_EQ(engine->files().settle(id), 0);
    engine->files().released(id);
  }

  int rename(const std::string& from, const std::string& to, unsigned flags = 0) {
    return engine->edits().rename(kRootNode, from, kRootNode, to, flags);
  }

  // What is in the replica.

  std::optional<Change> change(NodeId id) {
    return engine->replica().read([&](ReplicaReader& reader) { return journal::find(reader, id); });
  }

  NodeId named(const std::string& name, NodeId folder = kRootNode) {
    const auto all = names(folder);
    const auto found = all.find(name);
    return found == all.end() ? kNoNode : found->second;
  }

  std::string contentsOf(NodeId id) {
    const auto node = row(id);
    if (!node || node->content == kNoContent) return {};
    return readFile(engine->store().path(node->content));
  }

  journal::Counts counts() { return engine->uploader().statistics().counts; }

  // A file of the host, with its contents here.
  NodeId downloaded(const std::string& identifier, const std::string& name,
                    const std::string& contents, const std::string& parent = root()) {
    extension->file(identifier, name, contents, parent);
    list();
    const NodeId id = idOf(identifier);
    readThrough(id);
    return id;
  }

  void list(NodeId folder = kRootNode) {
    commit();
    EXPECT_EQ(refresh(folder), 0);
  }

  static std::string root() { return ScriptedExtension::root(); }

  // Going up.

  // Sends what is due; returns how many changes were seen to.
  unsigned drain() {
    constexpr unsigned kMost = 200;
    unsigned steps = 0;
    while (steps < kMost && engine->uploader().step())
      ++steps;
    EXPECT_LT(steps, kMost) << "the queue does not come to rest";
    return steps;
  }

  // Lets the quiet time go by, and sends what is due.
  unsigned push() {
    clock += kQuiet;
    return drain();
  }

  // Until nothing waits, however long the pauses are.
  void pushAll() {
    for (unsigned i = 0; i < 20 && counts().pending > 0; ++i) {
      clock += std::chrono::minutes(10);
      drain();
    }
    EXPECT_EQ(counts().pending, 0);
  }

  std::vector<Mutation> sent() { return extension->mutations(); }

  std::vector<std::string> sentNames() {
    std::vector<std::string> result;
    for (const Mutation& mutation : sent())
      result.push_back(mutation.name);
    return result;
  }

  std::string hostContents(const std::string& name) {
    const auto items = extension->named(name);
    EXPECT_EQ(items.size(), 1U) << name;
    return items.empty() ? std::string() : items.front().contents;
  }

  WallTime clock = at(1'800'000'000'000);
};

}  // namespace tulo::test
