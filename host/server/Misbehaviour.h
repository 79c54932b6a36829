// How the host behaves badly on demand: what an injected fault makes of an answer.
//
// Threads: pure functions.
#pragma once

#include <string>
#include <string_view>

#include "host/server/Answer.h"

namespace tulo::host {

namespace misbehaviour {
// A line that is not JSON; no work is done.
inline constexpr std::string_view garbage = "garbage";
// The connection is closed without a reply; no work is done.
inline constexpr std::string_view hangUp = "hangup";
// Nothing is answered until the peer goes; no work is done.
inline constexpr std::string_view silent = "silent";
// The work is done and answered with megabytes of padding beside the result.
inline constexpr std::string_view huge = "huge";
// The work is done and the connection closed without a reply.
inline constexpr std::string_view dropReply = "drop-reply";
// The work is done and answered without its result ("path" or "ulid").
inline constexpr std::string_view noResult = "no-result";
// A failure that has a message but no kind; no work is done.
inline constexpr std::string_view noKind = "no-kind";
}  // namespace misbehaviour

// Whether a request is carried out although a fault of this kind was asked for.
bool doesTheWork(std::string_view kind);

// The answer in place of any work: the misbehaviour, or a failure of that kind.
Answer injectedAnswer(const std::string& kind);

// What is left of the reply `line` when the work is done.
Answer spoiledAnswer(const std::string& kind, const std::string& line);

}  // namespace tulo::host
