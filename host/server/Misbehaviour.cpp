#include "host/server/Misbehaviour.h"

#include <nlohmann/json.hpp>

#include "host/server/Reply.h"

namespace tulo::host {

namespace {

constexpr std::size_t hugeSize = std::size_t{8} << 20;

}  // namespace

bool doesTheWork(std::string_view kind) {
  return kind == misbehaviour::huge || kind == misbehaviour::dropReply ||
         kind == misbehaviour::noResult;
}

Answer injectedAnswer(const std::string& kind) {
  using Manner = Answer::Manner;
  if (kind == misbehaviour::garbage) return {Manner::reply, "this is no reply\n"};
  if (kind == misbehaviour::hangUp) return {Manner::hangUp, {}};
  if (kind == misbehaviour::silent) return {Manner::silence, {}};
  const std::string message = "failure asked for with --fault";
  return {Manner::reply, failureReply(kind == misbehaviour::noKind ? "" : kind, message)};
}

Answer spoiledAnswer(const std::string& kind, const std::string& line) {
  using Manner = Answer::Manner;
  if (kind == misbehaviour::dropReply) return {Manner::hangUp, {}};
  nlohmann::json reply = nlohmann::json::parse(line);
  if (kind == misbehaviour::huge) reply["padding"] = std::string(hugeSize, 'x');
  if (kind == misbehaviour::noResult) {
    reply.erase("path");
    reply.erase("ulid");
  }
  return {Manner::reply, reply.dump() + "\n"};
}

}  // namespace tulo::host
