// A list of programs, told by name.
//
// One entry a line: NAME, or NAME and ARGUMENT with blanks between, for a program that does many
// things and is meant only when it runs with that argument (a file's name without its folders).
// Both may hold the shell's wildcards. "!" before an entry takes the programs that it fits off the
// list: of several entries that fit a program, the last one counts. Empty lines and lines that
// begin with "#" mean nothing.
//
// Threads: not to be changed while others read it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tulo {

// What is known of a running program.
struct ProgramNames {
  std::string executable;              // the file's name without its folders; empty: not known
  std::string command;                 // as the kernel keeps it, cut after 15 bytes
  std::vector<std::string> arguments;  // the program's own name first
};

class ProgramList {
 public:
  // The programs that look into every file without anybody wanting to read it: indexers and
  // makers of thumbnails.
  static ProgramList standard();

  // Reads further lines.
  void add(std::string_view lines);

  bool matches(const ProgramNames& program) const;

 private:
  struct Entry {
    std::string name;
    std::string argument;  // empty: whatever the arguments are
    bool listed = true;
  };

  void addLine(std::string_view line);
  static bool matches(const Entry& entry, const ProgramNames& program);

  std::vector<Entry> entries_;
};

}  // namespace tulo
