// An engine without a kernel and without background work, on a scripted extension.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <future>
#include <map>
#include <memory>
#include <string>

#include "service/Engine.h"
#include "tests/service/support/ScriptedExtension.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {

class InvalidationRecorder final : public InvalidationSink {
 public:
  void deliver(const Invalidation& invalidation) override { all.push_back(invalidation); }
  bool has(const Invalidation& wanted) const {
    return std::find(all.begin(), all.end(), wanted) != all.end();
  }
  Invalidations all;
};

class EngineFixture : public ::testing::Test {
 protected:
  EngineFixture() : extension(std::make_shared<ScriptedExtension>(directory.path())) {
    options.domain = "test";
    options.stateDirectory = directory.file("state");
    options.source = {directory.path(), "state.db"};
    options.limits.keepFreeFraction = 0;
    options.limits.keepFreeBytes = 0;
    std::filesystem::create_directory(options.stateDirectory);
    commit();
    open();
  }

  ~EngineFixture() override {
    extension->releaseFetches();
    engine.reset();
  }

  void open() {
    engine = std::make_unique<Engine>(options, [this](const auto&) { return extension; });
  }

  // Ends the engine in an orderly way and opens the same replica again.
  void reopen() {
    engine.reset();
    open();
  }

  // The host commits: the source looks different.
  void commit() {
    writeFile(directory.file("state.db"), std::string(++commits_, 'x'));
    if (engine) engine->sync().checkSource();
  }

  int refresh(NodeId folder = kRootNode) {
    std::promise<int> done;
    engine->sync().refresh(folder, [&done](int error) { done.set_value(error); });
    return done.get_future().get();
  }

  std::optional<Node> node(const std::string& identifier) {
    return engine->replica().read(
        [&](ReplicaReader& reader) { return reader.nodeFor(identifier); });
  }

  std::optional<Node> row(NodeId id) {
    return engine->replica().read([&](ReplicaReader& reader) { return reader.node(id); });
  }

  NodeId idOf(const std::string& identifier) {
    const auto found = node(identifier);
    return found ? found->id : kNoNode;
  }

  // Shown names in the folder with their node numbers.
  std::map<std::string, NodeId> names(NodeId folder = kRootNode) {
    std::map<std::string, NodeId> result;
    engine->replica().read([&](ReplicaReader& reader) {
      reader.children(folder, kNoNode, [&](const Entry& entry, std::string_view name) {
        result[std::string(name)] = entry.id;
        return true;
      });
    });
    return result;
  }

  InvalidationRecorder delivered() {
    InvalidationRecorder recorder;
    engine->notifier().deliverNow(recorder);
    return recorder;
  }

  // As a program opens a file, waiting for the answer.
  OpenAnswer openFile(NodeId id, int process = 0) {
    OpenAttempt attempt = engine->contents().openNow(id);
    if (attempt.isAnswered()) return std::move(attempt.answer);
    std::promise<OpenAnswer> answer;
    auto future = answer.get_future();
    const auto ticket = engine->contents().beginOpen(
        [&answer](OpenAnswer result) { answer.set_value(std::move(result)); });
    engine->contents().proceed(ticket, id, process, attempt.step);
    return future.get();
  }

  static std::string contentsOf(OpenFile& file) {
    if (file.endsBefore(0)) return {};
    const auto descriptor = file.descriptor();
    std::string bytes(static_cast<std::size_t>(::lseek(descriptor->get(), 0, SEEK_END)), '\0');
    const ssize_t count = ::pread(descriptor->get(), bytes.data(), bytes.size(), 0);
    EXPECT_EQ(count, static_cast<ssize_t>(bytes.size()));
    return bytes;
  }

  std::string readThrough(NodeId id) {
    const OpenAnswer answer = openFile(id);
    EXPECT_EQ(answer.error, 0);
    return answer.file ? contentsOf(*answer.file) : std::string();
  }

  TemporaryDirectory directory;
  std::shared_ptr<ScriptedExtension> extension;
  EngineOptions options;
  std::unique_ptr<Engine> engine;

 private:
  std::size_t commits_ = 0;
};

}  // namespace tulo::test
