#include "service/control/ControlChanges.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <nlohmann/json.hpp>
#include <thread>
#include <unordered_set>

#include "service/edits/Pending.h"
#include "service/replica/JournalTree.h"

namespace tulo::control {

namespace {

using nlohmann::json;

constexpr std::size_t kShown = 100;
constexpr std::int64_t kNamed = 4;
constexpr std::chrono::milliseconds kLook{100};
constexpr int kLooksRarely = 10;
constexpr std::chrono::milliseconds kEndless{0};
constexpr std::int64_t kLongestTimeout = std::int64_t{365} * 24 * 3600 * 1000;

// What a request is about.
struct Scope {
  std::vector<NodeId> nodes;
  bool everything = false;
  json unknown = json::array();  // names that stand for nothing
};

Scope scopeOf(Engine& engine, const json& request) {
  Scope scope;
  scope.nodes = request.value("nodes", std::vector<NodeId>());
  for (const json& each : request.value("deleted", json::array())) {
    const std::string name = each.at("name").get<std::string>();
    const NodeId found = engine.replica().read([&](ReplicaReader& reader) {
      return pending::deletedFrom(reader, each.at("folder").get<NodeId>(), name);
    });
    if (found == kNoNode) {
      scope.unknown.push_back({{"path", name}, {"error", std::strerror(ENOENT)}});
    } else {
      scope.nodes.push_back(found);
    }
  }
  const bool named = request.contains("nodes") || request.contains("deleted");
  scope.everything =
      !named || std::find(scope.nodes.begin(), scope.nodes.end(), kRootNode) != scope.nodes.end();
  return scope;
}

std::vector<NodeId> changedIn(Engine& engine, const Scope& scope) {
  return engine.replica().read([&](ReplicaReader& reader) {
    if (scope.everything) return journal::within(reader, kRootNode);
    std::vector<NodeId> result;
    std::unordered_set<NodeId> seen;
    for (NodeId node : scope.nodes) {
      for (NodeId each : journal::within(reader, node)) {
        if (seen.insert(each).second) result.push_back(each);
      }
    }
    return result;
  });
}

const char* stateOf(Engine& engine, const Change& change) {
  if (change.attention) return "needs attention";
  if (change.held) return "local";
  if (engine.openFiles().isOpenForWriting(change.node)) return "being written";
  return change.attempts > 0 ? "trying again" : "waiting";
}

json shown(Engine& engine, const pending::Item& item) {
  json result = {{"path", item.path},
                 {"kind", pending::kindOf(item.change)},
                 {"folder", item.kind == NodeKind::folder},
                 {"state", stateOf(engine, item.change)},
                 {"attempts", item.change.attempts},
                 {"error", item.change.reason}};
  if (!item.former.empty()) result["from"] = item.former;
  if (item.kind == NodeKind::file && !item.change.deleted) result["size"] = item.size;
  return result;
}

json shown(Engine& engine, ReplicaReader& reader, NodeId node) {
  const std::optional<Change> change = journal::find(reader, node);
  if (!change) return {};
  const pending::Item item = pending::describe(reader, *change);
  json result = shown(engine, item);
  if (item.kind == NodeKind::folder && item.isNew && !change->deleted) {
    const auto local = journal::localPaths(reader, node, kNamed);
    if (!local.empty()) result["keeps"] = local;
  }
  return result;
}

journal::Counts countsIn(Engine& engine, const Scope& scope) {
  journal::Counts counts;
  if (scope.everything) {
    return engine.replica().read([](ReplicaReader& reader) { return journal::counts(reader); });
  }
  const std::vector<NodeId> nodes = changedIn(engine, scope);
  engine.replica().read([&](ReplicaReader& reader) {
    for (NodeId node : nodes) {
      const std::optional<Change> change = journal::find(reader, node);
      if (!change || change->held) continue;
      ++(change->attention ? counts.attention : counts.pending);
    }
  });
  return counts;
}

// Some of what is left, what needs attention first.
json someIn(Engine& engine, const Scope& scope) {
  std::vector<Change> changes;
  const std::vector<NodeId> nodes =
      scope.everything ? std::vector<NodeId>() : changedIn(engine, scope);
  json result = json::array();
  engine.replica().read([&](ReplicaReader& reader) {
    if (scope.everything) changes = journal::all(reader, kShown);
    for (NodeId node : nodes) {
      if (const auto change = journal::find(reader, node)) changes.push_back(*change);
    }
    std::stable_partition(changes.begin(), changes.end(),
                          [](const Change& change) { return change.attention; });
    for (const Change& change : changes) {
      if (change.held || result.size() >= kShown) continue;
      result.push_back(shown(engine, pending::describe(reader, change)));
    }
  });
  return result;
}

// What stays on this machine.
json localOf(ReplicaReader& reader) {
  json result = json::array();
  for (NodeId node : journal::localNodes(reader, kShown)) {
    const std::string path = pending::pathOf(reader, node);
    if (!path.empty()) result.push_back(path);
  }
  return result;
}

// Why nothing may be going up.
json connection(const Uploader::Statistics& up) {
  return {{"hostPresent", up.present}, {"hostReachable", up.reachable}, {"paused", up.paused}};
}

void hurry(Engine& engine, const Scope& scope) {
  if (scope.everything) {
    engine.uploader().hurryAll();
  } else {
    engine.uploader().hurry(changedIn(engine, scope));
  }
}

const char* whyNot(int error) {
  switch (error) {
    case EBUSY:
      return "in use: being sent, or open in a program";
    case ENOTEMPTY:
      return "something is in it that the host does not have; move or delete that first";
    case EEXIST:
      return "its former name is taken";
    case EINVAL:
      return "its former folder is inside it";
    case ESTALE:
      return "its former folder is gone";
    default:
      return std::strerror(error);
  }
}

// How many changes are left when nothing waits any more, the time is over, or nobody listens.
journal::Counts awaitNone(Engine& engine, const Scope& scope, std::chrono::milliseconds timeout,
                          const ControlServer::Emit& emit) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  for (;;) {
    const Clock::time_point begin = Clock::now();
    const journal::Counts counts = countsIn(engine, scope);
    json told = connection(engine.uploader().statistics());
    told["left"] = counts.pending;
    const bool over = timeout != kEndless && Clock::now() - start >= timeout;
    if (counts.pending == 0 || over || !emit(json{{"progress", told}}.dump())) return counts;
    // Looking through a long queue must not hold up those who see to it.
    const auto cost = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
    std::this_thread::sleep_for(std::max(kLook, kLooksRarely * cost));
  }
}

}  // namespace

json changesStatus(Engine& engine) {
  const Uploader::Statistics up = engine.uploader().statistics();
  json result = connection(up);
  result.update({{"readWrite", engine.options().readWrite},
                 {"pending", up.counts.pending},
                 {"needsAttention", up.counts.attention},
                 {"uploading", up.active},
                 {"sent", up.sent},
                 {"failedUploads", up.failures},
                 {"conflicts", up.conflicts},
                 {"lastUploadError", up.lastError}});
  engine.replica().read([&](ReplicaReader& reader) {
    result["localItems"] = journal::countLocal(reader);
    result["local"] = localOf(reader);
    json uploads = json::array();
    for (NodeId node : up.activeNodes) {
      json item = shown(engine, reader, node);
      if (!item.is_null()) uploads.push_back(std::move(item));
    }
    result["uploads"] = std::move(uploads);
    json all = json::array();
    for (const Change& change : journal::all(reader, kShown)) {
      all.push_back(shown(engine, pending::describe(reader, change)));
      const auto& active = up.activeNodes;
      const bool sending = std::find(active.begin(), active.end(), change.node) != active.end();
      if (sending) all.back()["state"] = "sending";
    }
    result["changes"] = std::move(all);
  });
  return result;
}

json changes(Engine& engine, const json& request) {
  const Scope scope = scopeOf(engine, request);
  json result = json::array();
  for (NodeId node : changedIn(engine, scope)) {
    json item =
        engine.replica().read([&](ReplicaReader& reader) { return shown(engine, reader, node); });
    if (!item.is_null()) result.push_back(std::move(item));
  }
  return {{"ok", scope.unknown.empty()}, {"changes", result}, {"failures", scope.unknown}};
}

json flush(Engine& engine, const json& request, const ControlServer::Emit& emit) {
  const Scope scope = scopeOf(engine, request);
  const std::chrono::milliseconds timeout(
      std::clamp(request.value("timeout", std::int64_t{0}), std::int64_t{0}, kLongestTimeout));
  journal::Counts counts = countsIn(engine, scope);
  json result = {{"ok", scope.unknown.empty()}, {"failures", scope.unknown}};
  if (engine.options().readWrite) {
    hurry(engine, scope);
    if (request.value("wait", false)) counts = awaitNone(engine, scope, timeout, emit);
  } else if (counts.pending > 0) {
    result["ok"] = false;
    result["error"] = "the account is mounted read-only, so nothing goes up";
  }
  result["pending"] = counts.pending;
  result["needsAttention"] = counts.attention;
  result["changes"] = someIn(engine, scope);
  result.update(connection(engine.uploader().statistics()));
  return result;
}

json retry(Engine& engine, const json& request) {
  const Scope scope = scopeOf(engine, request);
  if (scope.everything) {
    const std::int64_t refused = engine.uploader().statistics().counts.attention;
    engine.uploader().retry(true);
    return {{"ok", true}, {"retried", refused}};
  }
  const std::vector<NodeId> nodes = changedIn(engine, scope);
  engine.uploader().retry(nodes);
  return {{"ok", scope.unknown.empty()}, {"retried", nodes.size()}, {"failures", scope.unknown}};
}

json discard(Engine& engine, const json& request) {
  const Scope scope = scopeOf(engine, request);
  json failures = scope.unknown;
  std::size_t dropped = 0;
  for (NodeId node : changedIn(engine, scope)) {
    const std::string path = engine.replica().read([&](ReplicaReader& reader) {
      const std::optional<Change> change = journal::find(reader, node);
      return change ? pending::describe(reader, *change).path : std::string();
    });
    const int error = engine.uploader().discard(node);
    if (error == 0) {
      ++dropped;
    } else if (error != ENOENT) {  // else it went up meanwhile
      failures.push_back({{"path", path}, {"error", whyNot(error)}});
    }
  }
  return {{"ok", failures.empty()}, {"discarded", dropped}, {"failures", failures}};
}

}  // namespace tulo::control
