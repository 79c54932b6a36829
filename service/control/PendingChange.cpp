#include "service/control/PendingChange.h"

#include <array>
#include <utility>

#include "service/control/Fields.h"

namespace tulo::control {

namespace {

using nlohmann::json;

template <typename Enum, std::size_t count>
using Texts = std::array<std::pair<Enum, const char*>, count>;

constexpr Texts<ChangeKind, 4> kKinds = {{
    {ChangeKind::deleted, "delete"},
    {ChangeKind::added, "new"},
    {ChangeKind::contents, "contents"},
    {ChangeKind::place, "name"},
}};

constexpr Texts<ChangeState, 7> kStates = {{
    {ChangeState::waiting, "waiting"},
    {ChangeState::tryingAgain, "trying again"},
    {ChangeState::beingWritten, "being written"},
    {ChangeState::sending, "sending"},
    {ChangeState::atHost, "waiting for the host"},
    {ChangeState::needsAttention, "needs attention"},
    {ChangeState::local, "local"},
}};

template <typename Enum, std::size_t count>
const char* textIn(const Texts<Enum, count>& texts, Enum value) {
  for (const auto& [each, text] : texts) {
    if (each == value) return text;
  }
  return "";
}

template <typename Enum, std::size_t count>
Enum namedIn(const Texts<Enum, count>& texts, std::string_view text, Enum otherwise) {
  for (const auto& [value, each] : texts) {
    if (each == text) return value;
  }
  return otherwise;
}

}  // namespace

const char* textOf(ChangeKind kind) {
  return textIn(kKinds, kind);
}

const char* textOf(ChangeState state) {
  return textIn(kStates, state);
}

ChangeKind changeKindNamed(std::string_view text) {
  return namedIn(kKinds, text, ChangeKind::place);
}

ChangeState changeStateNamed(std::string_view text) {
  return namedIn(kStates, text, ChangeState::waiting);
}

void to_json(json& to, const PendingChange& change) {
  to = {{"path", change.path},           {"kind", textOf(change.kind)}, {"folder", change.folder},
        {"state", textOf(change.state)}, {"attempts", change.attempts}, {"error", change.error}};
  if (change.from) to["from"] = *change.from;
  if (change.size) to["size"] = *change.size;
  if (!change.keeps.empty()) to["keeps"] = change.keeps;
}

void from_json(const json& from, PendingChange& change) {
  from.at("path").get_to(change.path);
  change.kind = changeKindNamed(from.value("kind", ""));
  getIfThere(from, "folder", change.folder);
  change.state = changeStateNamed(from.value("state", ""));
  getIfThere(from, "attempts", change.attempts);
  getIfThere(from, "error", change.error);
  getIfThere(from, "from", change.from);
  getIfThere(from, "size", change.size);
  getIfThere(from, "keeps", change.keeps);
}

}  // namespace tulo::control
