// Failures and delays on demand, for tests and for makers of extensions and hosts.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tulo::host {

// What happens to requests of one operation.
struct Fault {
  // "fetch", "thumbnail", "create", "modify", "delete", or "any".
  std::string operation;
  // One of the misbehaviours below, or the failure kind to answer with.
  std::string kind;
  // How many requests; none: all of them.
  std::optional<std::int64_t> times;
};

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

// "OP=KIND" or "OP=KIND:N". Throws StartError that says what was expected.
Fault parseFault(std::string_view text);

struct Delay {
  std::string operation;
  std::chrono::milliseconds time{0};
};

// "OP=MS". Throws StartError that says what was expected.
Delay parseDelay(std::string_view text);

// Threads: every member may be called on any thread.
class Faults {
 public:
  void add(Fault fault);
  void add(const Delay& delay);
  void clear();

  // The kind of the first fault that waits for this operation, which is one fewer then.
  std::optional<std::string> take(std::string_view operation);
  std::chrono::milliseconds delay(std::string_view operation);

 private:
  std::mutex mutex_;
  std::vector<Fault> faults_;
  std::map<std::string, std::chrono::milliseconds, std::less<>> delays_;
};

}  // namespace tulo::host
