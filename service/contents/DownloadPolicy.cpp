#include "service/contents/DownloadPolicy.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>
#include <vector>

namespace tulo {

namespace {

// A thumbnailer's script or sandbox and what that starts; further up are sessions and shells.
constexpr int kAncestors = 4;
constexpr std::size_t kMostDecisions = 1024;
constexpr std::size_t kLongestFile = 64 * 1024;
// Position in /proc/PID/stat, counted from the field after the command.
constexpr int kParentField = 1;
constexpr int kStartField = 19;

std::optional<std::string> wholeFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  std::string bytes(kLongestFile, '\0');
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  return bytes;
}

// The name of the program's file, also when an upgrade has replaced it.
std::string executableName(const std::string& link) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length = readlink(link.c_str(), target.data(), target.size());
  if (length <= 0) return {};
  std::string path(target.data(), static_cast<std::size_t>(length));
  constexpr std::string_view kDeleted = " (deleted)";
  if (path.ends_with(kDeleted)) path.resize(path.size() - kDeleted.size());
  return path.substr(path.rfind('/') + 1);
}

// Changes whenever the file does; one text for every state of not being there.
std::string stampOf(const std::string& path) {
  struct stat status {};
  if (path.empty() || stat(path.c_str(), &status) != 0) return "absent";
  std::ostringstream stamp;
  stamp << status.st_ino << ' ' << status.st_size << ' ' << status.st_mtim.tv_sec << ' '
        << status.st_mtim.tv_nsec;
  return stamp.str();
}

}  // namespace

DownloadPolicy::DownloadPolicy(std::string listPath, std::string procDirectory)
    : listPath_(std::move(listPath)), proc_(std::move(procDirectory)) {}

std::string DownloadPolicy::userListPath() {
  const char* configuration = std::getenv("XDG_CONFIG_HOME");
  if (configuration != nullptr && *configuration == '/') {
    return std::string(configuration) + "/tulo/no-download";
  }
  const char* home = std::getenv("HOME");
  return home != nullptr && *home == '/' ? std::string(home) + "/.config/tulo/no-download" : "";
}

bool DownloadPolicy::mayDownload(pid_t pid) {
  if (pid <= 0) return true;
  const pid_t main = leader(pid);
  const auto record = process(main);
  if (!record) return true;
  const MutexLock lock(mutex_);
  readListIfChanged();
  if (const auto known = remembered(main, *record)) return *known;
  const bool may = decide(main, *record);
  if (decisions_.size() >= kMostDecisions) decisions_.clear();
  decisions_[main] = {record->started, record->program.executable, record->program.command, may};
  return may;
}

// A process keeps its number and start when it becomes another program, so that counts too.
std::optional<bool> DownloadPolicy::remembered(pid_t pid, const ProcessRecord& record) const {
  const auto found = decisions_.find(pid);
  if (found == decisions_.end() || found->second.started != record.started ||
      found->second.executable != record.program.executable ||
      found->second.command != record.program.command) {
    return std::nullopt;
  }
  return found->second.may;
}

bool DownloadPolicy::decide(pid_t pid, ProcessRecord record) const {
  for (int i = 0; i <= kAncestors; ++i) {
    record.program.arguments = arguments(pid);
    if (list_.matches(record.program)) return false;
    pid = record.parent;
    if (pid <= 1) return true;
    auto parent = process(pid);
    if (!parent) return true;
    record = std::move(*parent);
  }
  return true;
}

// FUSE tells the thread, whose name is its own affair.
pid_t DownloadPolicy::leader(pid_t thread) const {
  std::ifstream status(proc_ + "/" + std::to_string(thread) + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with("Tgid:")) {
      const long number = std::strtol(line.c_str() + sizeof("Tgid:") - 1, nullptr, 10);
      return number > 0 ? static_cast<pid_t>(number) : thread;
    }
  }
  return thread;
}

std::optional<ProcessRecord> DownloadPolicy::process(pid_t pid) const {
  const std::string folder = proc_ + "/" + std::to_string(pid);
  const auto stat = wholeFile(folder + "/stat");
  if (!stat) return std::nullopt;
  // The command stands in parentheses and may hold some itself.
  const auto open = stat->find('(');
  const auto close = stat->rfind(')');
  if (open == std::string::npos || close == std::string::npos || close < open) return std::nullopt;
  std::istringstream rest(stat->substr(close + 1));
  const std::vector<std::string> fields{std::istream_iterator<std::string>(rest), {}};
  if (fields.size() <= kStartField) return std::nullopt;
  ProcessRecord record;
  record.program.command = stat->substr(open + 1, close - open - 1);
  record.program.executable = executableName(folder + "/exe");
  record.parent = static_cast<pid_t>(std::strtol(fields[kParentField].c_str(), nullptr, 10));
  record.started = fields[kStartField];
  return record;
}

std::vector<std::string> DownloadPolicy::arguments(pid_t pid) const {
  const auto line = wholeFile(proc_ + "/" + std::to_string(pid) + "/cmdline");
  std::vector<std::string> result;
  std::istringstream words(line.value_or(""));
  for (std::string word; std::getline(words, word, '\0');)
    result.push_back(word);
  return result;
}

void DownloadPolicy::readListIfChanged() {
  const std::string stamp = stampOf(listPath_);
  if (stamp == listStamp_) return;
  listStamp_ = stamp;
  decisions_.clear();
  list_ = ProgramList::standard();
  if (const auto lines = wholeFile(listPath_)) list_.add(*lines);
}

}  // namespace tulo
