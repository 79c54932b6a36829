// The mounted part of the demo: the account as an ordinary folder.
#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <thread>

#include "cli/demo/Walk.h"

namespace tulo::cli::demo {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds patience{60};
constexpr std::chrono::milliseconds pollInterval{20};

void writeFile(const std::filesystem::path& path, const std::string& contents) {
  std::ofstream stream(path, std::ios::binary);
  stream << contents;
  stream.close();
  if (!stream) throw WalkError("cannot write " + path.string());
}

}  // namespace

bool Walk::startMount() {
  if (!MountedAccount::isPossible()) {
    terminal_.line("   Nothing can be mounted here: this user may not use /dev/fuse.");
    return false;
  }
  mounted_ = std::make_unique<MountedAccount>(served_.container(), check_);
  interruption_.setWakeUp([this] {
    mounted_->interrupt();
    served_.interrupt();
  });
  terminal_.fact("mounted", "tulo mount " + mounted_->folder().string());
  return true;
}

void Walk::endMount() {
  interruption_.setWakeUp([this] { served_.interrupt(); });
  mounted_->unmount();
  mounted_.reset();
}

void Walk::mount() {
  terminal_.heading("The same account as an ordinary folder");
  if (!startMount()) return;
  useMount(mounted_->folder());
  changeInMount(mounted_->folder());
  endMount();
}

void Walk::useMount(const std::filesystem::path& folder) {
  const std::filesystem::path picture = folder / sample::picture;
  struct stat status = {};
  expect(::stat(picture.c_str(), &status) == 0 && status.st_size > 0 && status.st_blocks == 0,
         "before it is opened, " + sample::picture + " has its size and no blocks");
  expect(contentsOf(picture) == contentsOf(served_.folder() / sample::picture),
         "opened, it is the host's picture, byte for byte");
  const std::string name = "Postcard.txt";
  const auto isThere = [&] { return std::filesystem::exists(folder / name); };
  expect(!isThere(), quotedName(name) + " is not there");
  const auto timeUntil = [&](bool there) {
    const auto begin = Clock::now();
    while (isThere() != there && Clock::now() < begin + patience)
      check_();
    return timeText(Clock::now() - begin);
  };
  std::ofstream(served_.folder() / name) << "Greetings from the host.\n";
  const std::string appeared = timeUntil(true);
  expect(isThere(), "written at the host, it is in the folder " + appeared + " later");
  std::filesystem::remove(served_.folder() / name);
  const std::string vanished = timeUntil(false);
  expect(!isThere(), "removed at the host, it is gone " + vanished + " later");
}

// The host's file has these contents, and the item there is the one that it was, in a new version.
void Walk::expectArrival(const std::string& path, const std::string& contents,
                         const platform::ItemPointer& before, const std::string& what) {
  const auto begin = Clock::now();
  platform::ItemPointer now = before;
  const auto hasArrived = [&] {
    now = childNamed(before->parentItemIdentifier(), before->filename());
    return now && now->itemVersion().contentVersion != before->itemVersion().contentVersion &&
           contentsOf(served_.folder() / path) == contents;
  };
  while (!hasArrived() && Clock::now() < begin + patience) {
    check_();
    std::this_thread::sleep_for(pollInterval);
  }
  expect(now && contentsOf(served_.folder() / path) == contents,
         what + ", and " + timeText(Clock::now() - begin) + " later the host has it");
  expect(now->itemIdentifier() == before->itemIdentifier() &&
             now->itemVersion().contentVersion != before->itemVersion().contentVersion,
         "it is still the same item, in version " + now->itemVersion().contentVersion +
             " instead of " + before->itemVersion().contentVersion);
}

void Walk::changeInMount(const std::filesystem::path& folder) {
  const platform::ItemPointer budget = itemAt(sample::budget);
  const std::string more = contentsOf(folder / sample::budget) + "boat,1200\n";
  writeFile(folder / sample::budget, more);
  expectArrival(sample::budget, more, budget, "a line is added to " + sample::budget);
  saveAsEditorsDo(folder);
  changeWithoutHost(folder);
}

// Most editors write a new file beside the old one, and rename it over that.
void Walk::saveAsEditorsDo(const std::filesystem::path& folder) {
  const platform::ItemPointer ideas = itemAt(sample::ideas);
  const std::filesystem::path temporary = (folder / sample::ideas).parent_path() / "Ideas.md.new";
  const std::string text = "- a boat\n- a harbour\n";
  writeFile(temporary, text);
  std::filesystem::rename(temporary, folder / sample::ideas);
  expectArrival(sample::ideas, text, ideas,
                "a temporary file is renamed over " + sample::ideas + ", as editors save");
}

void Walk::changeWithoutHost(const std::filesystem::path& folder) {
  const platform::ItemPointer letter = itemAt(sample::letter);
  // Changing it takes what is in it.
  const std::string text = contentsOf(folder / sample::letter) + "It is cold.\n";
  served_.stopHost();
  terminal_.fact("host", "stopped");
  writeFile(folder / sample::letter, text);
  expect(contentsOf(folder / sample::letter) == text &&
             contentsOf(served_.folder() / sample::letter) != text,
         sample::letter + " is changed without the host: here it is, there it is not");
  served_.startHost(check_);
  terminal_.fact("host", "started again");
  expectArrival(sample::letter, text, letter, "the change waited");
}

}  // namespace tulo::cli::demo
