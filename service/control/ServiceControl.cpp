#include "service/control/ServiceControl.h"

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <nlohmann/json.hpp>

#include "service/control/ControlChanges.h"
#include "service/edits/Pending.h"

namespace tulo {

namespace {

using nlohmann::json;

constexpr std::size_t kShownErrors = 100;
constexpr std::size_t kShownTransfers = 100;

std::string text(const json& value) {
  return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string pathOf(Engine& engine, NodeId node) {
  return engine.replica().read(
      [&](ReplicaReader& reader) { return pending::pathOf(reader, node); });
}

json transfersOf(Engine& engine, const Contents::Statistics& statistics) {
  json result = json::array();
  for (const Contents::Transfer& transfer : statistics.transfers) {
    if (result.size() >= kShownTransfers) break;
    result.push_back({{"path", pathOf(engine, transfer.node)},
                      {"size", transfer.size},
                      {"since", transfer.startedAt.time_since_epoch().count()},
                      {"ahead", transfer.ahead},
                      {"active", transfer.active}});
  }
  return result;
}

json errorsOf(Engine& engine) {
  json result = json::array();
  const auto failed =
      engine.replica().read([](ReplicaReader& reader) { return reader.failedNodes(kShownErrors); });
  for (const Node& node : failed) {
    result.push_back({{"path", pathOf(engine, node.id)}, {"error", node.error}});
  }
  return result;
}

json statusOf(Engine& engine, const std::string& mountPoint) {
  const Contents::Statistics contents = engine.contents().statistics();
  const Sync::Statistics sync = engine.sync().statistics();
  json status = {{"ok", true},
                 {"domain", engine.options().domain},
                 {"mountPoint", mountPoint},
                 {"process", ::getpid()},
                 {"indexPresent", engine.source().present()},
                 {"lastListingError", sync.lastError == 0 ? "" : std::strerror(sync.lastError)},
                 {"generation", sync.generation},
                 {"anchor", sync.anchor},
                 {"listings", sync.listings},
                 {"unchangedListings", sync.unchanged},
                 {"staleFolders", sync.staleFolders},
                 {"cache",
                  {{"used", engine.store().used()},
                   {"limit", engine.store().limits().size},
                   {"incoming", engine.store().reserved()}}},
                 {"openFiles", engine.openFiles().count()},
                 {"kernelFolders", engine.folders().references()},
                 {"fetched", contents.fetched},
                 {"failedFetches", contents.failed},
                 {"deniedDownloads", contents.denied},
                 {"evicted", contents.evicted},
                 {"readWrite", engine.options().readWrite},
                 {"transfers", transfersOf(engine, contents)},
                 {"errors", errorsOf(engine)}};
  status.update(control::changesStatus(engine));
  return status;
}

// Runs one action for each node at a limited rate and tells how far it is.
class Batch {
 public:
  Batch(Engine& engine, const ControlServer::Emit& emit) : engine_(engine), emit_(emit) {}

  bool progress(std::size_t done, std::size_t total) {
    return emit_(text({{"progress", {{"done", done}, {"total", total}}}}));
  }

  // Downloads with a bounded number under way; returns the failures.
  json download(const std::vector<NodeId>& files) {
    std::unique_lock lock(mutex_);
    std::size_t sent = 0;
    bool listening = true;
    while (listening && (sent < files.size() || done_ < sent)) {
      while (sent < files.size() && sent - done_ < kUnderWay) {
        const NodeId file = files[sent++];
        lock.unlock();
        engine_.contents().fetch(file, Contents::Priority::opened,
                                 [this, file](int error) { finished(file, error); });
        lock.lock();
      }
      const std::size_t seen = done_;
      changed_.wait_for(lock, std::chrono::milliseconds(200), [&] { return done_ != seen; });
      lock.unlock();
      listening = progress(done_, files.size());
      lock.lock();
    }
    // The completions refer to this object.
    changed_.wait(lock, [&] { return done_ == sent; });
    return failures_;
  }

 private:
  static constexpr std::size_t kUnderWay = 32;

  void finished(NodeId file, int error) {
    const std::string path = error != 0 ? pathOf(engine_, file) : std::string();
    std::lock_guard lock(mutex_);
    ++done_;
    if (error != 0) failures_.push_back({{"path", path}, {"error", std::strerror(error)}});
    changed_.notify_all();
  }

  Engine& engine_;
  const ControlServer::Emit& emit_;
  // Guards the fields below; a leaf.
  std::mutex mutex_;
  std::condition_variable changed_;
  std::atomic<std::size_t> done_ = 0;
  json failures_ = json::array();
};

std::vector<NodeId> nodesOf(const json& request) {
  return request.value("nodes", std::vector<NodeId>());
}

json download(Engine& engine, const json& request, const ControlServer::Emit& emit) {
  Batch batch(engine, emit);
  TreeWalk walk(engine.replica(), engine.sync());
  std::vector<NodeId> files;
  for (NodeId node : nodesOf(request)) {
    const auto found =
        walk.files(node, [&](std::size_t count) { return batch.progress(0, count); });
    files.insert(files.end(), found.begin(), found.end());
  }
  const json failures = batch.download(files);
  return {{"ok", failures.empty()}, {"files", files.size()}, {"failures", failures}};
}

json evict(Engine& engine, const json& request) {
  TreeWalk walk(engine.replica(), engine.sync());
  json failures = json::array();
  std::size_t count = 0;
  for (NodeId node : nodesOf(request)) {
    for (NodeId file : walk.knownFiles(node)) {
      const int error = engine.contents().evict(file);
      ++count;
      if (error == 0) continue;
      const char* reason = error == EBUSY ? "open, pinned, or not sent yet" : std::strerror(error);
      failures.push_back({{"path", pathOf(engine, file)}, {"error", reason}});
    }
  }
  return {{"ok", failures.empty()}, {"files", count}, {"failures", failures}};
}

json pin(Engine& engine, const json& request, bool pinned) {
  json failures = json::array();
  for (NodeId node : nodesOf(request)) {
    const int error = engine.pins().setPinned(node, pinned);
    if (error != 0) failures.push_back({{"node", node}, {"error", std::strerror(error)}});
  }
  engine.poke();
  return {{"ok", failures.empty()}, {"failures", failures}};
}

json answer(Engine& engine, const std::string& mountPoint, const json& request,
            const ControlServer::Emit& emit) {
  const std::string operation = request.value("op", "");
  if (operation == "status") return statusOf(engine, mountPoint);
  if (operation == "pin") return pin(engine, request, true);
  if (operation == "unpin") return pin(engine, request, false);
  if (operation == "download") return download(engine, request, emit);
  if (operation == "evict") return evict(engine, request);
  if (operation == "changes") return control::changes(engine, request);
  if (operation == "flush") return control::flush(engine, request, emit);
  if (operation == "retry") return control::retry(engine, request);
  if (operation == "discard") return control::discard(engine, request);
  if (operation == "unmount") {
    const journal::Counts counts = engine.uploader().statistics().counts;
    return {{"ok", true}, {"pending", counts.pending}, {"needsAttention", counts.attention}};
  }
  return {{"ok", false}, {"error", "unknown operation: " + operation}};
}

}  // namespace

bool answerControl(Engine& engine, const std::string& mountPoint, const std::string& request,
                   const ControlServer::Emit& emit) {
  bool end = false;
  json result;
  try {
    const json parsed = json::parse(request);
    engine.files().catchUp();
    result = answer(engine, mountPoint, parsed, emit);
    end = parsed.value("op", "") == "unmount";
  } catch (const json::exception& error) {
    result = {{"ok", false}, {"error", std::string("not a request: ") + error.what()}};
  } catch (const std::exception& error) {
    result = {{"ok", false}, {"error", error.what()}};
  }
  emit(text(result));
  return end;
}

}  // namespace tulo
