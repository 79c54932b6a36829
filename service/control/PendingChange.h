// A change on its way to the host, as the control socket tells of it.
//
// Threads: plain values.
// Errors: from_json throws json::exception for a field of another type than it must have.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tulo::control {

// What differs from what the host has. On the wire in words.
enum class ChangeKind {
  deleted,   // "delete"
  added,     // "new"
  contents,  // "contents"
  place,     // "name": renamed or moved
};

// What keeps it here. On the wire in words, which are also shown to the user.
enum class ChangeState {
  waiting,
  tryingAgain,
  beingWritten,  // a program has it open for writing
  sending,
  atHost,  // "waiting for the host": what became of a request is not known
  needsAttention,
  local,  // its name says that it stays on this machine
};

const char* textOf(ChangeKind kind);
const char* textOf(ChangeState state);
// What is no kind or state is taken for a change of the place that waits.
ChangeKind changeKindNamed(std::string_view text);
ChangeState changeStateNamed(std::string_view text);

struct PendingChange {
  std::string path;
  ChangeKind kind = ChangeKind::place;
  bool folder = false;
  ChangeState state = ChangeState::waiting;
  std::int64_t attempts = 0;
  // Why the last attempt failed; empty when none did.
  std::string error;
  // Where the host has it, if elsewhere.
  std::optional<std::string> from;
  // Of a file that was not deleted.
  std::optional<std::int64_t> size;
  // Of a new folder: some of what is in it and stays here; not on the wire when nothing does.
  std::vector<std::string> keeps;

  bool operator==(const PendingChange&) const = default;
};

void to_json(nlohmann::json& json, const PendingChange& change);
void from_json(const nlohmann::json& json, PendingChange& change);

}  // namespace tulo::control
