#include "service/control/Replies.h"

#include <utility>

#include "service/control/Fields.h"

namespace tulo::control {

using nlohmann::json;

Outcome Outcome::with(Failures failures) {
  const bool ok = failures.empty();
  return {.ok = ok, .error = {}, .failures = std::move(failures)};
}

Outcome Outcome::refused(std::string error) {
  return {.ok = false, .error = std::move(error), .failures = {}};
}

json progressLine(const json& progress) {
  return {{"progress", progress}};
}

std::optional<json> progressIn(const json& line) {
  if (!line.contains("progress")) return std::nullopt;
  return line.at("progress");
}

void to_json(json& to, const Failure& failure) {
  to = {{"error", failure.error}};
  if (const auto* path = std::get_if<std::string>(&failure.what)) {
    to["path"] = *path;
  } else {
    to["node"] = std::get<NodeId>(failure.what);
  }
}

void from_json(const json& from, Failure& failure) {
  if (from.contains("path")) {
    failure.what = from.at("path").get<std::string>();
  } else {
    failure.what = from.value("node", kNoNode);
  }
  getIfThere(from, "error", failure.error);
}

void to_json(json& to, const Outcome& outcome) {
  to = {{"ok", outcome.ok}};
  if (outcome.error) to["error"] = *outcome.error;
  if (outcome.failures) to["failures"] = *outcome.failures;
}

void from_json(const json& from, Outcome& outcome) {
  getIfThere(from, "ok", outcome.ok);
  getIfThere(from, "error", outcome.error);
  getIfThere(from, "failures", outcome.failures);
}

void to_json(json& to, const HostState& host) {
  to = {{"hostPresent", host.present}, {"hostReachable", host.reachable}, {"paused", host.paused}};
}

void from_json(const json& from, HostState& host) {
  getIfThere(from, "hostPresent", host.present);
  getIfThere(from, "hostReachable", host.reachable);
  getIfThere(from, "paused", host.paused);
}

void to_json(json& to, const ChangeCounts& counts) {
  to = {{"pending", counts.pending}, {"needsAttention", counts.needsAttention}};
}

void from_json(const json& from, ChangeCounts& counts) {
  getIfThere(from, "pending", counts.pending);
  getIfThere(from, "needsAttention", counts.needsAttention);
}

void to_json(json& to, const FilesReply& reply) {
  to = reply.outcome;
  to["files"] = reply.files;
}

void from_json(const json& from, FilesReply& reply) {
  from.get_to(reply.outcome);
  getIfThere(from, "files", reply.files);
}

void to_json(json& to, const ChangesReply& reply) {
  to = reply.outcome;
  to["changes"] = reply.changes;
}

void from_json(const json& from, ChangesReply& reply) {
  from.get_to(reply.outcome);
  getIfThere(from, "changes", reply.changes);
}

void to_json(json& to, const FlushReply& reply) {
  to = joined(reply.outcome, reply.left, reply.host);
  to["changes"] = reply.changes;
}

void from_json(const json& from, FlushReply& reply) {
  from.get_to(reply.outcome);
  from.get_to(reply.left);
  from.get_to(reply.host);
  getIfThere(from, "changes", reply.changes);
}

void to_json(json& to, const RetryReply& reply) {
  to = reply.outcome;
  to["retried"] = reply.retried;
}

void from_json(const json& from, RetryReply& reply) {
  from.get_to(reply.outcome);
  getIfThere(from, "retried", reply.retried);
}

void to_json(json& to, const DiscardReply& reply) {
  to = reply.outcome;
  to["discarded"] = reply.discarded;
}

void from_json(const json& from, DiscardReply& reply) {
  from.get_to(reply.outcome);
  getIfThere(from, "discarded", reply.discarded);
}

void to_json(json& to, const UsingProgram& program) {
  to = {{"process", program.process}, {"name", program.name}, {"path", program.path}};
}

void from_json(const json& from, UsingProgram& program) {
  getIfThere(from, "process", program.process);
  getIfThere(from, "name", program.name);
  getIfThere(from, "path", program.path);
}

void to_json(json& to, const UnmountReply& reply) {
  to = joined(reply.outcome, reply.left);
  if (!reply.programs.empty()) to["programs"] = reply.programs;
  if (reply.goesOn) to["goesOn"] = true;
  if (reply.notWritten) to["notWritten"] = true;
}

void from_json(const json& from, UnmountReply& reply) {
  from.get_to(reply.outcome);
  from.get_to(reply.left);
  getIfThere(from, "programs", reply.programs);
  getIfThere(from, "goesOn", reply.goesOn);
  getIfThere(from, "notWritten", reply.notWritten);
}

void to_json(json& to, const FilesProgress& progress) {
  to = {{"done", progress.done}, {"total", progress.total}};
}

void from_json(const json& from, FilesProgress& progress) {
  getIfThere(from, "done", progress.done);
  getIfThere(from, "total", progress.total);
}

void to_json(json& to, const FlushProgress& progress) {
  to = progress.host;
  to["left"] = progress.left;
}

void from_json(const json& from, FlushProgress& progress) {
  from.get_to(progress.host);
  getIfThere(from, "left", progress.left);
}

}  // namespace tulo::control
