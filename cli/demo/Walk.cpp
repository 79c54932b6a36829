#include "cli/demo/Walk.h"

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <memory>
#include <thread>

#include "cli/Sizes.h"
#include "cli/demo/ErrorText.h"
#include "cli/demo/Tree.h"
#include "extension/FileProviderExtension.h"
#include "index/Index.h"
#include "platform/linux/Container.h"

namespace tulo::cli::demo {
namespace {

using Clock = std::chrono::steady_clock;
using Code = platform::NSFileProviderErrorCode;
using platform::fileProviderError;

constexpr std::chrono::seconds patience{60};
constexpr std::chrono::milliseconds pollInterval{20};

const std::string& root() {
  return platform::NSFileProviderRootContainerItemIdentifier();
}

// "PNG, 128 x 85 points" of an image's bytes; empty for what is no image.
std::string imageText(const platform::Data& data) {
  const std::unique_ptr<GdkPixbufLoader, decltype(&g_object_unref)> loader(gdk_pixbuf_loader_new(),
                                                                           &g_object_unref);
  const bool isWritten = gdk_pixbuf_loader_write(
      loader.get(), reinterpret_cast<const guchar*>(data.data()), data.size(), nullptr);
  const bool isClosed = gdk_pixbuf_loader_close(loader.get(), nullptr);
  const GdkPixbuf* image = gdk_pixbuf_loader_get_pixbuf(loader.get());
  GdkPixbufFormat* format = gdk_pixbuf_loader_get_format(loader.get());
  if (!isWritten || !isClosed || image == nullptr || format == nullptr) return {};
  const std::unique_ptr<char, decltype(&g_free)> name(gdk_pixbuf_format_get_name(format), &g_free);
  return std::string(name.get()) + ", " + std::to_string(gdk_pixbuf_get_width(image)) + " x " +
         std::to_string(gdk_pixbuf_get_height(image)) + " points, " +
         sizeText(static_cast<std::int64_t>(data.size()));
}

Account openAccount(const std::filesystem::path& container) {
  platform::setContainerDirectory(container.string());
  const auto extension =
      std::make_shared<FileProviderExtension>(std::make_shared<platform::NSFileProviderDomain>(
          Index::domainPrefix() + "primary", "Tulo Hub"));
  return {extension, extension};
}

}  // namespace

std::string contentsOf(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream) throw WalkError("cannot read " + path.string());
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::string timeText(std::chrono::steady_clock::duration duration) {
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(duration);
  return std::to_string(milliseconds.count()) + " ms";
}

std::string quotedName(const std::string& name) {
  return "“" + printable(name) + "”";
}

Walk::Walk(Terminal& terminal, Interruption& interruption, int archived)
    : terminal_(terminal),
      interruption_(interruption),
      check_([&interruption] { interruption.check(); }),
      archived_(archived),
      account_(openAccount(served_.container())) {
  interruption_.setWakeUp([this] { served_.interrupt(); });
}

Walk::~Walk() {
  interruption_.setWakeUp({});
}

void Walk::run() {
  makeAccount();
  startHost();
  list();
  download();
  changeThroughExtension();
  changeOnDisk();
  lock();
  thumbnails();
  refusals();
  mount();
  stopHost();
}

void Walk::expect(bool holds, const std::string& text) {
  check_();  // what an interruption broke is no failure
  if (!holds) throw WalkError("this does not hold: " + text);
  terminal_.holds(text);
}

void Walk::expectError(const std::string& what, const std::optional<platform::NSError>& error,
                       const platform::NSError& expected) {
  expect(error == expected, padded(what, 42) + (error ? errorText(*error) : "no error"));
}

platform::ItemPointer Walk::accepted(const Account::Answer& answer, const std::string& what) {
  check_();
  if (answer.error) throw WalkError(what + ": " + errorText(*answer.error));
  if (!answer.item) throw WalkError(what + ": no item came back");
  return answer.item;
}

platform::ItemPointer Walk::childNamed(const std::string& container, const std::string& name) {
  for (const auto& item : account_.list(container).items) {
    if (item->filename() == name) return item;
  }
  return nullptr;
}

platform::ItemPointer Walk::itemAt(const std::filesystem::path& path) {
  platform::ItemPointer item;
  for (const auto& name : path) {
    item = childNamed(item ? item->itemIdentifier() : root(), name);
    check_();
    if (!item) throw WalkError(path.string() + " is not listed");
  }
  return item;
}

bool Walk::isListedSoon(const std::string& name, bool wanted) {
  const auto end = Clock::now() + patience;
  while ((childNamed(root(), name) != nullptr) != wanted) {
    check_();
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(pollInterval);
  }
  return true;
}

std::string Walk::deskFile(const std::string& name, const std::string& contents) const {
  const std::filesystem::path path = served_.desk() / name;
  std::ofstream stream(path, std::ios::binary);
  stream << contents;
  stream.close();
  if (!stream) throw WalkError("cannot write " + path.string());
  return path;
}

// What is at a path of the account, as `ls` would tell it.
std::string Walk::onDisk(const std::filesystem::path& path) const {
  const std::filesystem::path full = served_.folder() / path;
  const auto status = std::filesystem::status(full);
  if (std::filesystem::is_directory(status)) return "folder " + path.string() + "/";
  if (!std::filesystem::is_regular_file(status)) return "nothing at " + path.string();
  return "file " + path.string() + ", " +
         sizeText(static_cast<std::int64_t>(std::filesystem::file_size(full)));
}

void Walk::makeAccount() {
  terminal_.heading("A sample account");
  counts_ = makeSample(served_.folder(), archived_, check_);
  terminal_.fact("folder", served_.folder().string());
  terminal_.fact("holds", countText(counts_.files, "file") + " in " +
                              countText(counts_.folders, "folder") + ", " +
                              sizeText(counts_.bytes));
}

void Walk::startHost() {
  terminal_.heading("A host application serves it");
  const auto start = Clock::now();
  served_.startHost(check_);
  waitForIndex();
  terminal_.fact("command", served_.hostCommandLine());
  terminal_.fact("process", std::to_string(served_.hostProcess()));
  terminal_.fact("socket", served_.socket().string());
  terminal_.holds("the whole account is in the index after " + timeText(Clock::now() - start));
  served_.hostCommand("lock", {sample::contract, "--user", "7"});
  terminal_.fact("lock", "tulo host lock " + sample::contract + " --user 7");
}

// The host may take requests before it has read the whole folder.
void Walk::waitForIndex() {
  const auto end = Clock::now() + patience;
  while (countTree(readTree(account_, root(), check_)).files < counts_.files) {
    if (Clock::now() > end) throw WalkError("the index does not get complete");
    std::this_thread::sleep_for(pollInterval);
  }
}

void Walk::list() {
  terminal_.heading("What the extension lists");
  terminal_.line("   " + terminal_.styled(Terminal::Style::folder, "Tulo Hub/"));
  const auto start = Clock::now();
  const std::vector<TreeNode> tree = readTree(account_, root(), check_);
  const auto duration = Clock::now() - start;
  printTree(tree, terminal_);
  const TreeCounts counts = countTree(tree);
  expect(counts.files == counts_.files && counts.folders == counts_.folders,
         countText(counts.files, "file") + " and " + countText(counts.folders, "folder") +
             ", as on the disk, listed in " + timeText(duration));
  expect(counts.marked == 3,
         countText(counts.marked, "name") +
             " marked: one differs in case, one in the spelling of é, one is a folder's");
  expect(counts.locked == 1, countText(counts.locked, "file") + " locked by a colleague");
}

void Walk::download() {
  terminal_.heading("A download");
  const platform::ItemPointer item = itemAt(sample::video);
  const auto start = Clock::now();
  const auto line = [&](std::int64_t completed, std::int64_t total) {
    return "   " + sample::video + ": " + std::to_string(completed) + " of " +
           std::to_string(total) + " done, " + timeText(Clock::now() - start);
  };
  terminal_.transient(line(0, 1));
  const Account::Download download =
      account_.fetch(item->itemIdentifier(), [&](const platform::Progress& progress) {
        terminal_.transient(line(progress.completedUnitCount(), progress.totalUnitCount()));
      });
  check_();
  if (!download.contents) throw WalkError("no contents came for " + sample::video);
  terminal_.line(line(1, 1));
  terminal_.fact("handed over", download.contents->path());
  const std::string bytes = contentsOf(download.contents->path());
  expect(
      bytes == contentsOf(served_.folder() / sample::video),
      sizeText(static_cast<std::int64_t>(bytes.size())) + ", byte for byte what is in the account");
  // The file belongs to whoever asked.
  std::filesystem::remove(download.contents->path());
}

void Walk::changeThroughExtension() {
  terminal_.heading("Changes, and what the host did on the disk");
  createFolderAndFile();
  renameAndMove();
  editAndDelete();
}

void Walk::createFolderAndFile() {
  folder_ = accepted(account_.createFolder(root(), "Trip to the lake"), "create a folder");
  expect(std::filesystem::is_directory(served_.folder() / "Trip to the lake"),
         "create " + quotedName(folder_->filename()) + " → " + onDisk("Trip to the lake"));
  const std::string text = "Swim, row, sleep.\n";
  file_ =
      accepted(account_.createFile(folder_->itemIdentifier(), "Plan.md", deskFile("Plan.md", text)),
               "create a file");
  expect(contentsOf(served_.folder() / "Trip to the lake/Plan.md") == text,
         "create " + quotedName(file_->filename()) + " → " + onDisk("Trip to the lake/Plan.md"));
}

void Walk::renameAndMove() {
  const std::string identifier = file_->itemIdentifier();
  file_ = accepted(account_.rename(*file_, "Itinerary.md"), "rename a file");
  expect(!std::filesystem::exists(served_.folder() / "Trip to the lake/Plan.md") &&
             std::filesystem::exists(served_.folder() / "Trip to the lake/Itinerary.md"),
         "rename it to " + quotedName(file_->filename()) + " → " +
             onDisk("Trip to the lake/Itinerary.md"));
  file_ =
      accepted(account_.move(*file_, itemAt(sample::documents)->itemIdentifier()), "move a file");
  expect(
      !std::filesystem::exists(served_.folder() / "Trip to the lake/Itinerary.md") &&
          std::filesystem::exists(served_.folder() / "Documents/Itinerary.md"),
      "move it into " + quotedName(sample::documents) + " → " + onDisk("Documents/Itinerary.md"));
  expect(file_->itemIdentifier() == identifier, "it is still the same item, " + identifier);
}

void Walk::editAndDelete() {
  const std::string before = file_->itemVersion().contentVersion;
  const std::string text = "Swim, row, sleep.\nAnd again on Sunday.\n";
  file_ = accepted(account_.edit(*file_, deskFile("Itinerary.md", text)), "edit a file");
  expect(contentsOf(served_.folder() / "Documents/Itinerary.md") == text &&
             file_->itemVersion().contentVersion != before,
         "edit it → " + onDisk("Documents/Itinerary.md") + "; version " + before + " became " +
             file_->itemVersion().contentVersion);
  expectGone("Documents/Itinerary.md", account_.remove(file_->itemIdentifier()), "delete it");
  expectGone("Trip to the lake", account_.remove(folder_->itemIdentifier()),
             "delete " + quotedName(folder_->filename()));
}

void Walk::expectGone(const std::filesystem::path& path,
                      const std::optional<platform::NSError>& error, const std::string& what) {
  expect(!error && !std::filesystem::exists(served_.folder() / path),
         what + " → " + (error ? errorText(*error) : onDisk(path)));
}

void Walk::changeOnDisk() {
  terminal_.heading("The other way: another program writes into the account's folder");
  const std::filesystem::path path = served_.folder() / "From a scanner.txt";
  std::ofstream(path) << "Scanned on a rainy day.\n";
  expect(isListedSoon("From a scanner.txt", true), "a new file is listed");
  std::filesystem::remove(path);
  expect(isListedSoon("From a scanner.txt", false), "and, once removed, no longer");
}

void Walk::lock() {
  terminal_.heading("A file that a colleague has locked");
  const platform::ItemPointer item = itemAt(sample::contract);
  expect(isLocked(*item), quotedName(item->filename()) + " may be read, and nothing else");
  expectError("an edit all the same", account_.edit(*item, deskFile("new", "Mine!\n")).error,
              fileProviderError(Code::serverUnreachable));
  served_.hostCommand("unlock", {sample::contract});
  terminal_.fact("unlock", "tulo host unlock " + sample::contract);
  expect(!isLocked(*itemAt(sample::contract)), "now it may be changed again");
}

void Walk::thumbnails() {
  terminal_.heading("Thumbnails");
  for (const std::string& path : {sample::picture, sample::drawing}) {
    const auto data = account_.thumbnail(itemAt(path)->itemIdentifier());
    const std::string text = data ? imageText(*data) : "";
    expect(!text.empty(), padded(path, 24) + text);
  }
  expect(!account_.thumbnail(itemAt(sample::contract)->itemIdentifier()),
         padded(sample::contract, 24) + "none, and no error: it is no picture");
}

void Walk::refusals() {
  terminal_.heading("What a host may refuse, in the system's words");
  const platform::ItemPointer item = itemAt(sample::contract);
  expectError("a name that cannot be", account_.rename(*item, "..").error,
              platform::cocoaError(platform::NSFileWriteInvalidFileNameError));
  expectError("a file that is not there", account_.fetch("i:NOSUCHFILE").error,
              fileProviderError(Code::noSuchItem));
  served_.hostCommand("logout", {});
  expectError("after \"tulo host logout\", a download",
              account_.fetch(item->itemIdentifier()).error,
              fileProviderError(Code::notAuthenticated));
  served_.hostCommand("login", {});
  const Account::Download download = account_.fetch(item->itemIdentifier());
  expect(download.contents.has_value(), "after \"tulo host login\", the download works");
  std::filesystem::remove(download.contents->path());
}

void Walk::stopHost() {
  terminal_.heading("The host is stopped");
  served_.stopHost();
  terminal_.fact("process", std::to_string(served_.hostProcess()) + " has ended");
  refusalsWhileStopped();
}

void Walk::refusalsWhileStopped() {
  const platform::NSError unreachable = fileProviderError(Code::serverUnreachable);
  const platform::ItemPointer item = itemAt(sample::contract);
  const std::string identifier = item->itemIdentifier();
  expect(countTree(readTree(account_, root(), check_)).files == counts_.files,
         padded("listing the whole account", 42) + "works: it needs the index only");
  expect(account_.item(identifier).item != nullptr, padded("looking one item up", 42) + "works");
  expectError("a download", account_.fetch(identifier).error, unreachable);
  expectError("a new folder", account_.createFolder(root(), "New").error, unreachable);
  const std::string contents = deskFile("new", "New.\n");
  expectError("a new file", account_.createFile(root(), "New.txt", contents).error, unreachable);
  expectError("a new name", account_.rename(*item, "Treaty.txt").error, unreachable);
  expectError("new contents", account_.edit(*item, contents).error, unreachable);
  expectError("a deletion", account_.remove(identifier), unreachable);
  const std::string picture = itemAt(sample::picture)->itemIdentifier();
  expect(!account_.thumbnail(picture), padded("a thumbnail", 42) + "none, and no error");
}

void Walk::keep() {
  terminal_.heading("The host runs again, until Ctrl-C");
  served_.startHost(check_);
  const std::string provider = "tulo provider --container " + served_.container().string();
  const std::string video = itemAt(sample::video)->itemIdentifier();
  const std::string picture = itemAt(sample::picture)->itemIdentifier();
  const bool isMounted = startMount();
  terminal_.line("   Try, in another terminal:");
  for (const std::string& command :
       {provider + " enumerate " + root(), provider + " item " + video,
        provider + " fetch " + video, provider + " thumbnails " + picture,
        provider + " create --name Hello.txt --contents /etc/hostname",
        "ls -la " + served_.folder().string(), std::string("tulo provider --help")}) {
    terminal_.line("     " + command);
  }
  if (isMounted) {
    const std::string folder = mounted_->folder();
    terminal_.line("   And in the mounted folder:");
    for (const std::string& command :
         {"ls -l " + folder, "cat " + folder + "/" + sample::contract,
          "echo '- a lighthouse' >> " + folder + "/" + sample::ideas,
          "getfattr -d " + folder + "/" + sample::ideas,
          "env " + mounted_->environment() + " tulo status",
          "env " + mounted_->environment() + " tulo flush --wait " + folder}) {
      terminal_.line("     " + command);
    }
  }
  interruption_.wait();
}

}  // namespace tulo::cli::demo
