// Turns one request into its answer, whatever it says.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "host/account/Account.h"
#include "host/account/Downloads.h"
#include "host/account/Request.h"
#include "host/account/StagedCopy.h"
#include "host/account/Staging.h"
#include "host/account/Thumbnails.h"
#include "host/base/HostLog.h"
#include "host/server/Answer.h"
#include "host/server/Faults.h"
#include "host/server/StopSignal.h"

namespace tulo::host {

using Accounts = std::map<std::string, std::unique_ptr<Account>, std::less<>>;

// Threads: answer() may be called on any number of threads. All references must outlive the
// handler.
class RequestHandler {
 public:
  struct Parts {
    Accounts& accounts;
    Staging& staging;
    Downloads& downloads;
    Thumbnails& thumbnails;
    Faults& faults;
    StopSignal& stop;
    const HostLog& log;
  };

  explicit RequestHandler(const Parts& parts) : parts_(parts) {}

  // Never throws; every failure is an answer.
  Answer answer(std::string_view text);

 private:
  Answer perform(const Request& request);
  Account& accountFor(const Request& request);
  std::string statusLine();

  std::string result(const FetchRequest& request, Account& account, const StagedCopy*);
  std::string result(const ThumbnailRequest& request, Account& account, const StagedCopy*);
  std::string result(const CreateRequest& request, Account& account, const StagedCopy* contents);
  std::string result(const ModifyRequest& request, Account& account, const StagedCopy* contents);
  std::string result(const DeleteRequest& request, Account& account, const StagedCopy*);
  std::string result(const LockRequest& request, Account& account, const StagedCopy*);
  std::string result(const SignInRequest& request, Account& account, const StagedCopy*);

  Parts parts_;
};

}  // namespace tulo::host
