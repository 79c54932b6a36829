#include "service/contents/ProgramList.h"

#include <fnmatch.h>

#include <algorithm>

namespace tulo {

namespace {

// The kernel keeps so many bytes of a command's name.
constexpr std::size_t kCommandLength = 15;

constexpr std::string_view kBlanks = " \t\r";

constexpr std::string_view kStandard = R"(
# Makers of thumbnails. Most are called after the rule of the first line.
*thumbnailer
*thumbnailer.py
gnome-thumbnail-font
mate-thumbnail-font
gsf-office-thumbnailer
tumblerd
kioslave thumbnail.so
kioslave5 thumbnail.so
kioslave5 *thumbnail*.so
kioworker *thumbnail*.so
kio_thumbnail
# Indexers of desktops.
tracker-extract*
tracker-miner-*
localsearch*
baloo_file*
baloo_filemetadata*
recollindex
# Indexers of file names, which have no business with contents.
updatedb
updatedb.*
plocate-build
)";

std::string_view trimmed(std::string_view text) {
  const auto begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

std::string_view lastComponent(std::string_view path) {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

bool fits(const std::string& pattern, std::string_view text) {
  return !text.empty() && fnmatch(pattern.c_str(), std::string(text).c_str(), 0) == 0;
}

// The name that the kernel cut, whole again if the program was started under it: a script's name
// stands among its interpreter's arguments.
std::string wholeCommand(const ProgramNames& program) {
  if (program.command.size() < kCommandLength) return program.command;
  for (const std::string& argument : program.arguments) {
    const std::string_view name = lastComponent(argument);
    if (name.substr(0, kCommandLength) == program.command) return std::string(name);
  }
  return program.command;
}

bool isCutName(const std::string& name, const std::string& command) {
  return command.size() == kCommandLength && name.substr(0, kCommandLength) == command;
}

}  // namespace

ProgramList ProgramList::standard() {
  ProgramList list;
  list.add(kStandard);
  return list;
}

void ProgramList::add(std::string_view lines) {
  while (!lines.empty()) {
    const auto end = lines.find('\n');
    addLine(trimmed(lines.substr(0, end)));
    lines.remove_prefix(end == std::string_view::npos ? lines.size() : end + 1);
  }
}

void ProgramList::addLine(std::string_view line) {
  if (line.empty() || line.front() == '#') return;
  const bool removes = line.front() == '!';
  if (removes) line = trimmed(line.substr(1));
  const auto blank = line.find_first_of(kBlanks);
  Entry entry{std::string(line.substr(0, blank)), {}, !removes};
  if (blank != std::string_view::npos) entry.argument = trimmed(line.substr(blank));
  if (!entry.name.empty()) entries_.push_back(std::move(entry));
}

bool ProgramList::matches(const ProgramNames& program) const {
  const auto last = std::find_if(entries_.rbegin(), entries_.rend(),
                                 [&](const Entry& entry) { return matches(entry, program); });
  return last != entries_.rend() && last->listed;
}

bool ProgramList::matches(const Entry& entry, const ProgramNames& program) {
  if (!fits(entry.name, program.executable) && !fits(entry.name, wholeCommand(program)) &&
      !isCutName(entry.name, program.command)) {
    return false;
  }
  if (entry.argument.empty()) return true;
  return std::any_of(
      program.arguments.begin(), program.arguments.end(),
      [&](const std::string& argument) { return fits(entry.argument, lastComponent(argument)); });
}

}  // namespace tulo
