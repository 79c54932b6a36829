// The folder that an account is mounted at, as the system sees it: whether it can be one, what a
// service that died left there, and the kernel's connection behind it.
//
// Threads: every member may be called on any thread.
#pragma once

#include <istream>
#include <stdexcept>
#include <string>
#include <utility>

namespace tulo {

class MountError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class MountPoint {
 public:
  explicit MountPoint(std::string path) : path_(std::move(path)) {}

  const std::string& path() const { return path_; }

  // Throws MountError, which says what is wrong with the path.
  void check() const;

  // Unmounts what a service that died has left there; false when there is nothing like that.
  bool clearStale() const;

  // The number of the kernel's connection to a service mounted there, as the table of mounts
  // (/proc/self/mountinfo) has it; empty when there is none. Of several the uppermost.
  std::string connectionNumber(std::istream& table) const;

  // Cuts the connection, so that nothing in the kernel waits for an answer any more.
  void abortConnection() const;

 private:
  const std::string path_;
};

}  // namespace tulo
