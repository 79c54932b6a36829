#include "service/control/ServiceControl.h"

#include <nlohmann/json.hpp>

#include "service/control/Operations.h"
#include "service/control/Shown.h"

namespace tulo {

namespace {

using control::ChangesRequest;
using control::FilesRequest;
using control::Operation;
using control::Outcome;
using nlohmann::json;

std::string text(const json& value) {
  // Names are whatever bytes a program gave.
  return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

// Hands progress on, of whatever kind.
auto listener(const ControlServer::Emit& emit) {
  return [&emit](const auto& progress) { return emit(text(control::progressLine(progress))); };
}

// That the service ends is the caller's business.
control::UnmountReply unmount(const ControlParts& parts, const control::UnmountRequest& request) {
  control::UnmountReply reply = parts.leave(request);
  // What was closed, or written back, by the end.
  parts.files.catchUp();
  reply.left = control::changeCounts(parts.uploader.statistics().counts);
  return reply;
}

bool endsTheService(const control::UnmountReply& reply) {
  return reply.outcome.ok && !reply.goesOn;
}

json answer(const ControlParts& parts, Operation operation, const json& request,
            const ControlServer::Emit& emit) {
  switch (operation) {
    case Operation::status:
      return control::status(parts);
    case Operation::pin:
      return control::setPinned(parts, request.get<FilesRequest>(), true);
    case Operation::unpin:
      return control::setPinned(parts, request.get<FilesRequest>(), false);
    case Operation::download:
      return control::download(parts, request.get<FilesRequest>(), listener(emit));
    case Operation::evict:
      return control::evict(parts, request.get<FilesRequest>());
    case Operation::changes:
      return control::changes(parts, request.get<ChangesRequest>());
    case Operation::flush:
      return control::flush(parts, request.get<control::FlushRequest>(), listener(emit));
    case Operation::retry:
      return control::retry(parts, request.get<ChangesRequest>());
    case Operation::discard:
      return control::discard(parts, request.get<ChangesRequest>());
    case Operation::unmount:
      return unmount(parts, request.get<control::UnmountRequest>());
  }
  return Outcome::refused("unknown operation");
}

}  // namespace

bool answerControl(const ControlParts& parts, const std::string& request,
                   const ControlServer::Emit& emit) {
  bool end = false;
  json result;
  try {
    const json parsed = json::parse(request);
    parts.files.catchUp();
    const std::string asked = control::operationText(parsed);
    if (const auto operation = control::operationNamed(asked)) {
      result = answer(parts, *operation, parsed, emit);
      end = operation == Operation::unmount && endsTheService(result.get<control::UnmountReply>());
    } else {
      result = control::Outcome::refused("unknown operation: " + asked);
    }
  } catch (const json::exception& error) {
    result = control::Outcome::refused(std::string("not a request: ") + error.what());
  } catch (const std::exception& error) {
    result = control::Outcome::refused(error.what());
  }
  emit(text(result));
  return end;
}

}  // namespace tulo
