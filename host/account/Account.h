// What a request asks of an account, whatever kind of account it is.
//
// A kind keeps the account's index (host/index) true to where its files are, and carries out what
// requests want changed. Whatever changes the account has changed its index, durably, when the call
// returns.
//
// Threads: every member may be called on any thread; start() and stop() once each, by the owner.
// Errors: OperationError.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/account/Request.h"
#include "host/account/StagedCopy.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

struct AccountStatus {
  // Where its files are, for people to read.
  std::string root;
  std::int64_t folders = 0;
  std::int64_t items = 0;
  bool isSignedIn = true;
};

// A file as it was at one version, open for reading.
struct OpenVersion {
  FileDescriptor file;
  std::int64_t version = 0;
};

class Account {
 public:
  virtual ~Account() = default;

  // Brings the index up to date with the files, and keeps it so from then on.
  virtual void start() = 0;
  // Ends that, and leaves the index complete in one file. Does nothing the second time.
  virtual void stop() = 0;

  virtual AccountStatus status() = 0;
  virtual bool isSignedIn() = 0;
  virtual void setSignedIn(bool signedIn) = 0;

  virtual OpenVersion openFile(const std::string& ulid) = 0;
  // The version of a file that is looked at afresh; nothing when it is gone.
  virtual std::optional<std::int64_t> currentVersion(const std::string& ulid) = 0;

  // `contents` is what the request has staged, null where it has nothing. Gives the identifier of
  // what was made.
  virtual std::string create(const CreateRequest& request, const StagedCopy* contents) = 0;
  virtual void modify(const ModifyRequest& request, const StagedCopy* contents) = 0;
  virtual void remove(const DeleteRequest& request) = 0;
  // Sets or clears the user who holds the lock of the file at this path below the account's top.
  virtual void setLock(const std::string& path, std::optional<std::int64_t> user) = 0;
};

}  // namespace tulo::host
