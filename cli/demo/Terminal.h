// What the demo prints: headings, facts, checks. Colours and moving lines where standard output is
// a terminal; plain lines where it is not, or where NO_COLOR is set.
//
// Threads: one at a time.
// Errors: a line that cannot be written is a std::runtime_error.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tulo::cli::demo {

class Terminal {
 public:
  enum class Style { plain, strong, faint, folder, marked, good, bad };

  Terminal();

  // A numbered heading with an empty line before it.
  void heading(std::string_view text);
  void line(std::string_view text = {});
  // A line below a heading, with a label in a column of its own.
  void fact(std::string_view label, std::string_view text);
  // A line that says that something was tried and held true.
  void holds(std::string_view text);
  // Replaces the line that is being written, on a terminal; nothing elsewhere.
  void transient(std::string_view text);

  // The text with the escapes of a style around it, or as it is where there are no colours.
  std::string styled(Style style, std::string_view text) const;

 private:
  bool isTerminal_;
  bool hasColors_;
  bool hasTransient_ = false;
  int headings_ = 0;
};

// "1 file", "3,127 files".
std::string countText(std::int64_t count, std::string_view noun);
// The name with control characters and bytes that are not UTF-8 shown as "?".
std::string printable(std::string_view name);
// The number of columns that the text takes up, of letters that take one each, with accents.
std::size_t columns(std::string_view text);
// The text, and spaces up to a number of columns.
std::string padded(std::string_view text, std::size_t width);

}  // namespace tulo::cli::demo
