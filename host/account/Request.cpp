#include "host/account/Request.h"

namespace tulo::host {

namespace {

struct NameOfOperation {
  std::string_view operator()(const FetchRequest&) const { return "fetch"; }
  std::string_view operator()(const ThumbnailRequest&) const { return "thumbnail"; }
  std::string_view operator()(const CreateRequest&) const { return "create"; }
  std::string_view operator()(const ModifyRequest&) const { return "modify"; }
  std::string_view operator()(const DeleteRequest&) const { return "delete"; }
  std::string_view operator()(const LockRequest& request) const {
    return request.user ? "lock" : "unlock";
  }
  std::string_view operator()(const SignInRequest& request) const {
    return request.signedIn ? "login" : "logout";
  }
  std::string_view operator()(const StatusRequest&) const { return "status"; }
};

}  // namespace

std::string_view operationName(const Request& request) {
  return std::visit(NameOfOperation{}, request);
}

std::optional<std::string> accountOf(const Request& request) {
  return std::visit(
      [](const auto& each) -> std::optional<std::string> {
        if constexpr (requires { each.account; }) {
          return each.account;
        } else {
          return std::nullopt;
        }
      },
      request);
}

std::optional<std::string> stagedPathOf(const Request& request) {
  if (const auto* create = std::get_if<CreateRequest>(&request)) return create->path;
  if (const auto* modify = std::get_if<ModifyRequest>(&request)) return modify->path;
  return std::nullopt;
}

}  // namespace tulo::host
