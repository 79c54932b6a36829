#include "host/server/RequestHandler.h"

#include <string>
#include <utility>
#include <variant>

#include "host/base/HostError.h"
#include "host/server/Misbehaviour.h"
#include "host/server/Reply.h"
#include "host/server/RequestParser.h"

namespace tulo::host {

namespace {

// How often a file is copied anew that somebody writes to meanwhile.
constexpr int mostCopies = 3;

std::string failureLine(const OperationError& error) {
  return failureReply(error.kind(), error.what());
}

std::string describe(const Request& request) {
  std::string text(operationName(request));
  if (const auto account = accountOf(request)) text += " for " + inQuotes(*account);
  std::visit(
      [&](const auto& each) {
        if constexpr (requires { each.ulid; }) text += " of " + inQuotes(each.ulid);
        if constexpr (requires { each.path.size(); }) text += " at " + inQuotes(each.path);
      },
      request);
  return text;
}

}  // namespace

Answer RequestHandler::answer(std::string_view text) {
  try {
    const Request request = parseRequest(text);
    Answer answer = perform(request);
    const std::string_view shown = std::string_view(answer.line).substr(0, 200);
    parts_.log.request(
        describe(request) + ": " +
        (shown.empty() ? "no reply" : std::string(shown.substr(0, shown.find('\n')))));
    return answer;
  } catch (const OperationError& error) {
    parts_.log.error("refused a request: " + std::string(error.what()));
    return {Answer::Manner::reply, failureLine(error)};
  } catch (const std::exception& error) {
    parts_.log.error("a request failed: " + std::string(error.what()));
    return {Answer::Manner::reply, failureReply(kind::io, error.what())};
  }
}

Answer RequestHandler::perform(const Request& request) {
  const std::string_view operation = operationName(request);
  const auto fault = parts_.faults.take(operation);
  parts_.stop.wait(parts_.faults.delay(operation));
  std::string line;
  try {
    // First of all, so that the copy is gone whatever the answer is.
    std::unique_ptr<StagedCopy> contents;
    if (const auto path = stagedPathOf(request)) contents = parts_.staging.claim(*path);
    if (fault && !doesTheWork(*fault)) return injectedAnswer(*fault);
    line = std::holds_alternative<StatusRequest>(request)
               ? statusLine()
               : std::visit(
                     [&](const auto& each) -> std::string {
                       if constexpr (requires { each.account; }) {
                         return result(each, accountFor(request), contents.get());
                       } else {
                         return successReply();
                       }
                     },
                     request);
  } catch (const OperationError& error) {
    line = failureLine(error);
  }
  if (fault) return spoiledAnswer(*fault, line);
  return {Answer::Manner::reply, std::move(line)};
}

Account& RequestHandler::accountFor(const Request& request) {
  const std::string name = accountOf(request).value_or("");
  const auto found = parts_.accounts.find(name);
  if (found == parts_.accounts.end()) {
    throw OperationError(kind::unauthorized,
                         "nobody is signed in to the account " + inQuotes(name));
  }
  Account& account = *found->second;
  if (!std::holds_alternative<SignInRequest>(request) && !account.isSignedIn()) {
    throw OperationError(kind::unauthorized, "the account " + inQuotes(name) + " is signed out");
  }
  return account;
}

std::string RequestHandler::statusLine() {
  std::map<std::string, AccountStatus> all;
  for (const auto& [name, account] : parts_.accounts)
    all[name] = account->status();
  return statusReply(all);
}

std::string RequestHandler::result(const FetchRequest& request, Account& account,
                                   const StagedCopy*) {
  for (int copy = 1;; ++copy) {
    const OpenVersion opened = account.openFile(request.ulid);
    std::string path = parts_.downloads.handOver(opened.file.get());
    // A version that came up during the copying may be half in it.
    if (copy == mostCopies || account.currentVersion(request.ulid) == opened.version) {
      return pathReply(path);
    }
    parts_.downloads.takeBack(path);
  }
}

std::string RequestHandler::result(const ThumbnailRequest& request, Account& account,
                                   const StagedCopy*) {
  const OpenVersion opened = account.openFile(request.ulid);
  if (const auto path = parts_.thumbnails.find(request.ulid, opened.version)) {
    return pathReply(*path);
  }
  return pathReply(parts_.thumbnails.render(request.ulid, opened.version, opened.file.get()));
}

std::string RequestHandler::result(const CreateRequest& request, Account& account,
                                   const StagedCopy* contents) {
  return ulidReply(account.create(request, contents));
}

std::string RequestHandler::result(const ModifyRequest& request, Account& account,
                                   const StagedCopy* contents) {
  account.modify(request, contents);
  return successReply();
}

std::string RequestHandler::result(const DeleteRequest& request, Account& account,
                                   const StagedCopy*) {
  account.remove(request);
  return successReply();
}

std::string RequestHandler::result(const LockRequest& request, Account& account,
                                   const StagedCopy*) {
  account.setLock(request.path, request.user);
  return successReply();
}

std::string RequestHandler::result(const SignInRequest& request, Account& account,
                                   const StagedCopy*) {
  account.setSignedIn(request.signedIn);
  return successReply();
}

}  // namespace tulo::host
