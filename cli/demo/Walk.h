// The demo itself: an account is made, served, and walked through the extension step by step; each
// step says what it does and checks that it did.
//
// Threads: one at a time.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "cli/demo/Account.h"
#include "cli/demo/Interruption.h"
#include "cli/demo/MountedAccount.h"
#include "cli/demo/Sample.h"
#include "cli/demo/ServedAccount.h"
#include "cli/demo/Terminal.h"

namespace tulo::cli::demo {

// A step did not do what it announced.
class WalkError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The bytes of a file. Throws WalkError.
std::string contentsOf(const std::filesystem::path& path);
// "12 ms".
std::string timeText(std::chrono::steady_clock::duration duration);
// The name between quotation marks, fit to be printed.
std::string quotedName(const std::string& name);

class Walk {
 public:
  // Both must outlive the walk. `archived` is the number of small files in the sample.
  Walk(Terminal& terminal, Interruption& interruption, int archived);
  ~Walk();
  Walk(const Walk&) = delete;
  Walk& operator=(const Walk&) = delete;

  // All steps in order. Throws WalkError at the first that fails, Interrupted on a signal.
  void run();
  // Leaves the account served, says what can be tried, and returns by throwing Interrupted.
  [[noreturn]] void keep();

 private:
  void makeAccount();
  void startHost();
  void list();
  void download();
  void changeThroughExtension();
  void createFolderAndFile();
  void renameAndMove();
  void editAndDelete();
  void changeOnDisk();
  void lock();
  void thumbnails();
  void refusals();
  void mount();
  void useMount(const std::filesystem::path& folder);
  void changeInMount(const std::filesystem::path& folder);
  void saveAsEditorsDo(const std::filesystem::path& folder);
  void changeWithoutHost(const std::filesystem::path& folder);
  void expectArrival(const std::string& path, const std::string& contents,
                     const platform::ItemPointer& before, const std::string& what);
  void stopHost();
  void refusalsWhileStopped();

  // Prints what holds, or throws.
  void expect(bool holds, const std::string& text);
  void expectError(const std::string& what, const std::optional<platform::NSError>& error,
                   const platform::NSError& expected);
  void expectGone(const std::filesystem::path& path, const std::optional<platform::NSError>& error,
                  const std::string& what);
  platform::ItemPointer accepted(const Account::Answer& answer, const std::string& what);
  // The item at a path of displayed names. Throws WalkError.
  platform::ItemPointer itemAt(const std::filesystem::path& path);
  platform::ItemPointer childNamed(const std::string& container, const std::string& name);
  // Mounts the account, if this machine can, and tells whether it did.
  bool startMount();
  void endMount();
  // The listing of the root has, or no longer has, this name within a bound.
  bool isListedSoon(const std::string& name, bool wanted);
  std::string deskFile(const std::string& name, const std::string& contents) const;
  std::string onDisk(const std::filesystem::path& path) const;
  void waitForIndex();

  Terminal& terminal_;
  Interruption& interruption_;
  const std::function<void()> check_;
  const int archived_;
  ServedAccount served_;
  Account account_;
  std::unique_ptr<MountedAccount> mounted_;
  SampleCounts counts_;
  platform::ItemPointer folder_;  // what the changes are made with
  platform::ItemPointer file_;
};

}  // namespace tulo::cli::demo
