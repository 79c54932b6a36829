// What the extension costs above the least that its work needs.
//
//   Listing                a folder of 100,000 files, one name in a hundred a clash
//   Collisions             the names of a folder of 1,000,000 files
//   Lookup                 one folder; one file among 10, 1,000 and 100,000
//   Exchange               a delete; a fetch whose reply has 5 MB
//   Staging                a file of 1 GiB
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <unordered_map>

#include "bench/BareExchange.h"
#include "bench/BareIndex.h"
#include "bench/Comparison.h"
#include "bench/Container.h"
#include "bridge/HostBridge.h"
#include "extension/FileProviderExtension.h"
#include "index/Collisions.h"
#include "index/Index.h"
#include "index/ItemID.h"
#include "presentation/DirectoryEnumerator.h"
#include "tests/support/IndexBuilder.h"

namespace tulo::bench {
namespace {

void expect(bool isTrue, const char* what) {
  if (isTrue) return;
  std::fprintf(stderr, "benchmark: %s\n", what);
  std::abort();
}

class CountingObserver : public platform::NSFileProviderEnumerationObserver {
 public:
  void didEnumerateItems(std::vector<platform::ItemPointer> items) override {
    count += items.size();
  }
  void finishEnumeratingUpToPage(std::optional<platform::NSFileProviderPage>) override {}
  void finishEnumeratingWithError(const platform::NSError&) override {}

  std::size_t count = 0;
};

constexpr int listed = 100'000;

void listThroughTheEnumerator() {
  const auto observer = std::make_shared<CountingObserver>();
  DirectoryEnumerator(ItemID::folder(folderOf(listed)), "state.db").enumerateItems(observer, {});
  expect(observer->count == listed, "not every file was listed");
}

Comparison listing() {
  const auto container = std::make_shared<Container>();
  container->writeIndex({listed});
  return {[container] {
            const auto rows = BareIndex(container->file("state.db")).children(folderOf(listed));
            expect(rows.size() == listed, "not every file was listed");
          },
          listThroughTheEnumerator};
}

Comparison listingAgainstALoopThatKeepsNothing() {
  const auto container = std::make_shared<Container>();
  container->writeIndex({listed});
  return {
      [container] { BareIndex(container->file("state.db")).childrenForgotten(folderOf(listed)); },
      listThroughTheEnumerator};
}

struct Names {
  std::vector<std::string> ulids;
  std::vector<std::string> names;
  std::vector<Collisions::Entry> entries;
};

std::shared_ptr<const Names> manyNames(const char* format) {
  constexpr int count = 1'000'000;
  auto names = std::make_shared<Names>();
  for (int i = 0; i < count; ++i) {
    char name[64];
    std::snprintf(name, sizeof name, format, i % 100 == 1 ? i - 1 : i);
    names->names.emplace_back(name);
    names->ulids.push_back(test::ulidOf(std::int64_t{i} * 7919 % count));
  }
  for (int i = 0; i < count; ++i) {
    const auto position = static_cast<std::size_t>(i);
    names->entries.push_back({names->ulids[position], names->names[position]});
  }
  return names;
}

void sortPositionsAndHashNames(const Names& names) {
  std::vector<std::size_t> positions(names.entries.size());
  std::iota(positions.begin(), positions.end(), std::size_t{0});
  std::sort(positions.begin(), positions.end(), [&](std::size_t a, std::size_t b) {
    return names.entries[a].ulid < names.entries[b].ulid;
  });
  std::unordered_map<std::string_view, int> counts;
  counts.reserve(names.entries.size());
  for (const std::size_t position : positions)
    ++counts[names.entries[position].name];
  benchmark::DoNotOptimize(counts);
}

std::function<Comparison()> resolving(const char* format) {
  return [format]() -> Comparison {
    const auto names = manyNames(format);
    return {[names] { sortPositionsAndHashNames(*names); },
            [names] { benchmark::DoNotOptimize(Collisions::resolve({}, names->entries)); }};
  };
}

std::shared_ptr<FileProviderExtension> extension() {
  return std::make_shared<FileProviderExtension>(std::make_shared<platform::NSFileProviderDomain>(
      Index::domainPrefix() + "primary", "Benchmark"));
}

void lookUp(FileProviderExtension& extension, const std::string& identifier) {
  extension.item(identifier, {}, [](const platform::ItemPointer& item, const auto&) {
    expect(item != nullptr, "nothing was found");
  });
}

Comparison lookupOfAFolder() {
  const auto container = std::make_shared<Container>();
  container->writeIndex({10});
  return {[container] {
            benchmark::DoNotOptimize(BareIndex(container->file("state.db")).folder(folderOf(10)));
          },
          [extension = extension()] { lookUp(*extension, ItemID::folder(folderOf(10))); }};
}

std::function<Comparison()> lookupOfAFileAmong(int size) {
  return [size]() -> Comparison {
    const auto container = std::make_shared<Container>();
    container->writeIndex({size});
    return {[container, size] {
              benchmark::DoNotOptimize(
                  BareIndex(container->file("state.db")).fileWithSiblings(fileInMiddleOf(size)));
            },
            [extension = extension(), size] {
              lookUp(*extension, ItemID::file(fileInMiddleOf(size)));
            }};
  };
}

// A host for both sides in a container of its own.
struct Host {
  explicit Host(const std::string& reply) : server(container.file("fp.sock"), reply) {}

  Container container;
  EchoServer server;
};

Comparison deleteExchange() {
  const auto host = std::make_shared<Host>("{\"ok\":true}\n");
  return {[host] {
            bareExchange(
                host->container.file("fp.sock"),
                "{\"account\":\"primary\",\"is_folder\":false,\"op\":\"delete\",\"ulid\":\"" +
                    fileInMiddleOf(10) + "\"}\n");
          },
          [host] { HostBridge::deleteItem("primary", fileInMiddleOf(10), false); }};
}

Comparison replyOfFiveMegabytes() {
  const std::string filling(5'000'000, 'x');
  const auto host =
      std::make_shared<Host>(R"({"ok":true,"path":"/p","filling":")" + filling + "\"}\n");
  return {[host] {
            bareExchange(host->container.file("fp.sock"),
                         "{\"account\":\"primary\",\"op\":\"fetch\",\"ulid\":\"U\"}\n");
          },
          [host] { HostBridge::fetch("primary", "U"); }};
}

void copyWithCp(const std::string& source, const std::string& destination) {
  const char* arguments[] = {"cp", "--reflink=auto", source.c_str(), destination.c_str(), nullptr};
  pid_t child = 0;
  // The interface wants them writable and does not write.
  expect(posix_spawnp(&child, "cp", nullptr, nullptr, const_cast<char**>(arguments), environ) == 0,
         "cp cannot be started");
  int status = 0;
  expect(waitpid(child, &status, 0) == child && status == 0, "cp failed");
}

Comparison staging() {
  const auto container = std::make_shared<Container>();
  const std::string source = container->file("source");
  {
    std::ofstream file(source, std::ios::binary);
    std::string block(1 << 20, '\0');
    for (std::size_t i = 0; i < block.size(); ++i)
      block[i] = static_cast<char>(i * 2654435761 >> 7);
    for (int i = 0; i < 1024; ++i)
      file << block;
    expect(file.flush().good(), "the source cannot be written");
  }
  const std::string staged = container->file("fp-upload");
  std::filesystem::create_directory(staged);
  return {[source, staged] { copyWithCp(source, staged + "/copy"); },
          [container, source] { HostBridge::stage(platform::URL(source)); },
          [staged] {
            for (const auto& copy : std::filesystem::directory_iterator(staged))
              std::filesystem::remove(copy.path());
            // What one side has left to write must not slow the other.
            ::sync();
          }};
}

void registerAll() {
  compare("Listing of 100,000 files", 21, 1.3, listing);
  compare("Listing, against a loop that keeps nothing", 21, std::nullopt,
          listingAgainstALoopThatKeepsNothing);
  compare("Collisions of 1,000,000 ASCII names", 9, 1.5, resolving("Quarterly report %07d.pdf"));
  compare("Collisions of 1,000,000 Unicode names", 5, std::nullopt,
          resolving("\u00dcbersicht \u039f\u0394\u039f\u03a3 %07d.pdf"));
  compare("Lookup of a folder", 2000, 1.2, lookupOfAFolder);
  compare("Lookup of a file among 10", 2000, 1.3, lookupOfAFileAmong(10));
  compare("Lookup of a file among 1,000", 500, 1.3, lookupOfAFileAmong(1'000));
  compare("Lookup of a file among 100,000", 21, 1.3, lookupOfAFileAmong(100'000));
  compare("Exchange of a delete", 5000, 1.25, deleteExchange);
  compare("Exchange with a reply of 5 MB", 101, std::nullopt, replyOfFiveMegabytes);
  compare("Staging of 1 GiB", 7, 1.1, staging);
}

}  // namespace
}  // namespace tulo::bench

int main(int argc, char** argv) {
  tulo::bench::registerAll();
  return tulo::bench::runComparisons(argc, argv);
}
