#include "service/ControlChanges.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <nlohmann/json.hpp>
#include <thread>

#include "service/Pending.h"

namespace tulo::control {

namespace {

using nlohmann::json;

constexpr std::size_t kShown = 100;
constexpr std::chrono::milliseconds kLook{100};

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
    if (scope.everything) return pending::within(reader, kRootNode);
    std::vector<NodeId> result;
    for (NodeId node : scope.nodes) {
      for (NodeId each : pending::within(reader, node)) {
        if (std::find(result.begin(), result.end(), each) == result.end()) result.push_back(each);
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
  const std::optional<Change> change = journal::find(reader.connection(), node);
  return change ? shown(engine, pending::describe(reader, *change)) : json();
}

// What is left of the changes: how many wait, how many need the user, and some of them.
json left(Engine& engine, const Scope& scope) {
  std::int64_t waiting = 0;
  std::int64_t attention = 0;
  json some = json::array();
  engine.replica().read([&](ReplicaReader& reader) {
    const auto look = [&](const Change& change) {
      if (change.held) return;
      ++(change.attention ? attention : waiting);
      if (some.size() < kShown) some.push_back(shown(engine, pending::describe(reader, change)));
    };
    if (scope.everything) {
      const journal::Counts counts = journal::counts(reader.connection());
      for (const Change& change : journal::all(reader.connection(), kShown))
        look(change);
      waiting = counts.pending;
      attention = counts.attention;
      return;
    }
    std::vector<NodeId> nodes;
    for (NodeId node : scope.nodes) {
      for (NodeId each : pending::within(reader, node))
        nodes.push_back(each);
    }
    std::sort(nodes.begin(), nodes.end());
    nodes.erase(std::unique(nodes.begin(), nodes.end()), nodes.end());
    for (NodeId node : nodes) {
      if (const auto change = journal::find(reader.connection(), node)) look(*change);
    }
  });
  return {{"pending", waiting}, {"needsAttention", attention}, {"changes", some}};
}

// What stays on this machine.
json localOf(ReplicaReader& reader) {
  json result = json::array();
  for (NodeId node : journal::localNodes(reader.connection(), kShown)) {
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
    result["localItems"] = pending::localItems(reader);
    result["local"] = localOf(reader);
    json uploads = json::array();
    for (NodeId node : up.activeNodes) {
      json item = shown(engine, reader, node);
      if (!item.is_null()) uploads.push_back(std::move(item));
    }
    result["uploads"] = std::move(uploads);
    json all = json::array();
    for (const Change& change : journal::all(reader.connection(), kShown)) {
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
  json result = left(engine, scope);
  result["failures"] = scope.unknown;
  if (!engine.options().readWrite) {
    const bool nothing = result.value("pending", 0) == 0;
    result["ok"] = nothing;
    if (!nothing) result["error"] = "the account is mounted read-only, so nothing goes up";
    return result;
  }
  hurry(engine, scope);
  const auto end = std::chrono::steady_clock::now() +
                   std::chrono::milliseconds(request.value("timeout", std::int64_t{0}));
  const bool endless = request.value("timeout", std::int64_t{0}) == 0;
  bool listening = request.value("wait", false);
  while (listening && result.value("pending", 0) > 0 &&
         (endless || std::chrono::steady_clock::now() < end)) {
    std::this_thread::sleep_for(kLook);
    result.update(left(engine, scope));
    json told = connection(engine.uploader().statistics());
    told["left"] = result["pending"];
    listening = emit(json{{"progress", told}}.dump());
  }
  result.update(connection(engine.uploader().statistics()));
  result["ok"] = scope.unknown.empty();
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
      const std::optional<Change> change = journal::find(reader.connection(), node);
      return change ? pending::describe(reader, *change).path : std::string();
    });
    const int error = engine.uploader().discard(node);
    if (error == 0) {
      ++dropped;
    } else if (error != ENOENT) {  // else it went up meanwhile
      const char* reason =
          error == EBUSY ? "in use: being sent, or open in a program" : std::strerror(error);
      failures.push_back({{"path", path}, {"error", reason}});
    }
  }
  return {{"ok", failures.empty()}, {"discarded", dropped}, {"failures", failures}};
}

}  // namespace tulo::control
