// What the control socket answers, as both of its ends see it.
//
// On the wire an answer is a line each for the progress, if the operation tells of any, and one
// line in the end: an object with "ok" and the fields of one of the structs below. Fields that
// nobody knows are ignored; one that is missing leaves what stands here. What came wrong from the
// service, a wrong operation for example, is an Outcome alone: so every struct can be read from it.
//
// Threads: plain values.
// Errors: from_json throws json::exception for a field of another type than it must have.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "service/control/PendingChange.h"
#include "service/replica/Ids.h"

namespace tulo::control {

// Why an item was left out. It goes by its path, or by its number where that is all that is known.
struct Failure {
  std::variant<std::string, NodeId> what;
  std::string error;

  bool operator==(const Failure&) const = default;
};
using Failures = std::vector<Failure>;

// How it went, in every last line.
struct Outcome {
  bool ok = false;
  std::optional<std::string> error;
  // Not on the wire where nothing was named that could have failed by itself.
  std::optional<Failures> failures;

  // Good when nothing failed.
  static Outcome with(Failures failures);
  static Outcome good() { return {.ok = true, .error = {}, .failures = {}}; }
  static Outcome refused(std::string error);

  bool operator==(const Outcome&) const = default;
};

// What is at the host's end. A missing field means that nothing is in the way.
struct HostState {
  bool present = true;
  bool reachable = true;
  bool paused = false;  // nobody is signed in there

  bool operator==(const HostState&) const = default;
};

// How many changes have not gone up.
struct ChangeCounts {
  std::int64_t pending = 0;
  std::int64_t needsAttention = 0;

  bool operator==(const ChangeCounts&) const = default;
};

// download and evict; of pin and unpin the outcome is all.
struct FilesReply {
  Outcome outcome;
  std::size_t files = 0;

  bool operator==(const FilesReply&) const = default;
};

struct ChangesReply {
  Outcome outcome;
  std::vector<PendingChange> changes;

  bool operator==(const ChangesReply&) const = default;
};

struct FlushReply {
  Outcome outcome;
  ChangeCounts left;
  // Some of what is left, what needs attention first.
  std::vector<PendingChange> changes;
  HostState host;

  bool operator==(const FlushReply&) const = default;
};

struct RetryReply {
  Outcome outcome;
  std::int64_t retried = 0;

  bool operator==(const RetryReply&) const = default;
};

struct DiscardReply {
  Outcome outcome;
  std::int64_t discarded = 0;

  bool operator==(const DiscardReply&) const = default;
};

// A program that uses the mount.
struct UsingProgram {
  std::int64_t process = 0;
  std::string name;
  std::string path;  // something of the mount that it uses

  bool operator==(const UsingProgram&) const = default;
};

struct UnmountReply {
  Outcome outcome;
  ChangeCounts left = {};
  // Those that are in the way, or were left behind.
  std::vector<UsingProgram> programs = {};
  // The service ends with the last of them.
  bool goesOn = false;
  // Not everything that they had written through mappings could be had in time.
  bool notWritten = false;

  bool operator==(const UnmountReply&) const = default;
};

// The progress of download, in files. While folders are listed the total grows.
struct FilesProgress {
  std::size_t done = 0;
  std::size_t total = 0;

  bool operator==(const FilesProgress&) const = default;
};

// The progress of flush.
struct FlushProgress {
  std::int64_t left = 0;
  HostState host;

  bool operator==(const FlushProgress&) const = default;
};

// The line that tells of progress, and the other way round: nothing when a line is the last one.
nlohmann::json progressLine(const nlohmann::json& progress);
std::optional<nlohmann::json> progressIn(const nlohmann::json& line);

void to_json(nlohmann::json& json, const Failure& failure);
void from_json(const nlohmann::json& json, Failure& failure);
void to_json(nlohmann::json& json, const Outcome& outcome);
void from_json(const nlohmann::json& json, Outcome& outcome);
void to_json(nlohmann::json& json, const HostState& host);
void from_json(const nlohmann::json& json, HostState& host);
void to_json(nlohmann::json& json, const ChangeCounts& counts);
void from_json(const nlohmann::json& json, ChangeCounts& counts);
void to_json(nlohmann::json& json, const FilesReply& reply);
void from_json(const nlohmann::json& json, FilesReply& reply);
void to_json(nlohmann::json& json, const ChangesReply& reply);
void from_json(const nlohmann::json& json, ChangesReply& reply);
void to_json(nlohmann::json& json, const FlushReply& reply);
void from_json(const nlohmann::json& json, FlushReply& reply);
void to_json(nlohmann::json& json, const RetryReply& reply);
void from_json(const nlohmann::json& json, RetryReply& reply);
void to_json(nlohmann::json& json, const DiscardReply& reply);
void from_json(const nlohmann::json& json, DiscardReply& reply);
void to_json(nlohmann::json& json, const UsingProgram& program);
void from_json(const nlohmann::json& json, UsingProgram& program);
void to_json(nlohmann::json& json, const UnmountReply& reply);
void from_json(const nlohmann::json& json, UnmountReply& reply);
void to_json(nlohmann::json& json, const FilesProgress& progress);
void from_json(const nlohmann::json& json, FilesProgress& progress);
void to_json(nlohmann::json& json, const FlushProgress& progress);
void from_json(const nlohmann::json& json, FlushProgress& progress);

}  // namespace tulo::control
