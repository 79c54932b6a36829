#include "cli/demo/Tree.h"

#include <algorithm>
#include <stdexcept>

#include "cli/Sizes.h"
#include "cli/demo/ErrorText.h"

namespace tulo::cli::demo {
namespace {

using Style = Terminal::Style;

constexpr std::size_t levelsShown = 2;
constexpr std::size_t noteColumn = 46;

// A line's parts; the notes of all lines stand in one column.
struct Line {
  std::string stem;  // the branches that lead to the name
  std::string name;
  Style style;
  std::string note;
};

void print(const Line& line, Terminal& terminal) {
  const std::size_t taken = 3 + columns(line.stem) + columns(line.name);
  const std::string gap(taken < noteColumn ? noteColumn - taken : 2, ' ');
  terminal.line("   " + terminal.styled(Style::faint, line.stem) +
                terminal.styled(line.style, line.name) +
                (line.note.empty() ? "" : gap + terminal.styled(Style::faint, line.note)));
}

std::string noteOf(const platform::NSFileProviderItem& item) {
  std::string note = sizeText(item.documentSize().value_or(0));
  if (isLocked(item)) note += ", locked: reading only";
  if (isMarked(item)) note += ", marked: its name clashes with a sibling's";
  return note;
}

std::string sumOf(const TreeNode& node) {
  const TreeCounts counts = countTree(node.children);
  const std::string files = countText(counts.files, "file");
  return counts.folders == 0 ? files : files + " in " + countText(counts.folders, "folder");
}

Line lineOf(const TreeNode& node, const std::string& stem, bool isSummary) {
  const platform::NSFileProviderItem& item = *node.item;
  const std::string name = printable(item.filename());
  if (isFolder(item)) return {stem, name + "/", Style::folder, isSummary ? sumOf(node) : ""};
  return {stem, name, isMarked(item) ? Style::marked : Style::plain, noteOf(item)};
}

void printLevel(const std::vector<TreeNode>& nodes, const std::string& stem, std::size_t depth,
                Terminal& terminal) {
  for (const TreeNode& node : nodes) {
    const bool isLast = &node == &nodes.back();
    const bool isDeepest = depth + 1 == levelsShown;
    print(lineOf(node, stem + (isLast ? "└── " : "├── "), isDeepest), terminal);
    if (!isDeepest) {
      printLevel(node.children, stem + (isLast ? "    " : "│   "), depth + 1, terminal);
    }
  }
}

bool comesBefore(const TreeNode& a, const TreeNode& b) {
  if (isFolder(*a.item) != isFolder(*b.item)) return isFolder(*a.item);
  return a.item->filename() < b.item->filename();
}

}  // namespace

bool isFolder(const platform::NSFileProviderItem& item) {
  return item.contentType() == platform::UTType::folder();
}

bool isLocked(const platform::NSFileProviderItem& item) {
  return !isFolder(item) &&
         item.capabilities() == platform::NSFileProviderItemCapabilitiesAllowsReading;
}

bool isMarked(const platform::NSFileProviderItem& item) {
  constexpr std::size_t tagLength = 6;
  const std::string identifier = item.itemIdentifier();
  if (isFolder(item) || identifier.size() < tagLength) return false;
  const std::string tag = " (" + identifier.substr(identifier.size() - tagLength) + ")";
  return item.filename().find(tag) != std::string::npos;
}

std::vector<TreeNode> readTree(Account& account, const std::string& container,
                               const std::function<void()>& betweenFolders) {
  betweenFolders();
  const Account::Listing listing = account.list(container);
  if (listing.error) {
    throw std::runtime_error("cannot list " + container + ": " + errorText(*listing.error));
  }
  std::vector<TreeNode> nodes;
  nodes.reserve(listing.items.size());
  for (const platform::ItemPointer& item : listing.items) {
    nodes.push_back({item, isFolder(*item)
                               ? readTree(account, item->itemIdentifier(), betweenFolders)
                               : std::vector<TreeNode>{}});
  }
  std::sort(nodes.begin(), nodes.end(), comesBefore);
  return nodes;
}

TreeCounts countTree(const std::vector<TreeNode>& nodes) {
  TreeCounts counts;
  for (const TreeNode& node : nodes) {
    const TreeCounts below = countTree(node.children);
    counts.files += below.files + (isFolder(*node.item) ? 0 : 1);
    counts.folders += below.folders + (isFolder(*node.item) ? 1 : 0);
    counts.marked += below.marked + (isMarked(*node.item) ? 1 : 0);
    counts.locked += below.locked + (isLocked(*node.item) ? 1 : 0);
  }
  return counts;
}

void printTree(const std::vector<TreeNode>& nodes, Terminal& terminal) {
  printLevel(nodes, "", 0, terminal);
}

}  // namespace tulo::cli::demo
