// One measured piece of work in a folder: `mount_probe WORK ARGUMENT...` prints the seconds that it
// took. The work is done with bare system calls, so that what is compared is the file systems.
//
//   names DIR           reads the names of the folder, as `ls -f`
//   list DIR            reads the names and the metadata of each, as `ls -l`
//   walk DIR            the same for all folders below, as `find`
//   stat LIST           metadata of the paths in the file LIST, in its order
//   missing DIR N       metadata of N names that are not there; asked once before, unmeasured
//   read LIST           opens, reads and closes each of the paths in the file LIST
//   sequential FILE     reads the file in pieces of 1 MiB
//   random FILE N       reads N pieces of 4 KiB at places that are the same in each run
//   enumerate DOMAIN ID lists the container through the extension, without any mount
//   create, create-durably, rename, remove, fill, send: see Writing.h
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "bench/mount/Writing.h"
#include "extension/FileProviderExtension.h"

namespace {

using namespace tulo::bench;

using Work = double (*)(const Arguments&);

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

class File {
 public:
  explicit File(const std::string& path) : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), path);
  }
  ~File() { close(descriptor_); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  std::size_t read(std::vector<char>& buffer) const {
    return checked(::read(descriptor_, buffer.data(), buffer.size()));
  }
  std::size_t readAt(std::vector<char>& buffer, off_t place) const {
    return checked(pread(descriptor_, buffer.data(), buffer.size(), place));
  }
  off_t size() const { return lseek(descriptor_, 0, SEEK_END); }

 private:
  static std::size_t checked(ssize_t count) {
    if (count < 0) throw std::system_error(errno, std::generic_category(), "read");
    return static_cast<std::size_t>(count);
  }

  int descriptor_;
};

template <typename Function>
double seconds(Function function) {
  const auto begin = std::chrono::steady_clock::now();
  function();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

bool isDots(const std::string& name) {
  return name == "." || name == "..";
}

// Metadata of each entry, and the same for the folders below if `deep`.
void visit(int parent, const char* name, bool withStat, bool deep) {
  const int descriptor = openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), name);
  const Directory directory(fdopendir(descriptor));
  while (const dirent* entry = readdir(directory.get())) {
    if (!withStat || isDots(entry->d_name)) continue;
    struct stat status {};
    if (fstatat(descriptor, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
      throw std::system_error(errno, std::generic_category(), entry->d_name);
    }
    if (deep && S_ISDIR(status.st_mode)) visit(descriptor, entry->d_name, withStat, deep);
  }
}

std::vector<std::string> lines(const std::string& path) {
  std::ifstream file(path);
  std::vector<std::string> result;
  for (std::string line; std::getline(file, line);)
    result.push_back(line);
  return result;
}

double names(const Arguments& arguments) {
  return seconds([&] { visit(AT_FDCWD, arguments[0].c_str(), false, false); });
}

double list(const Arguments& arguments) {
  return seconds([&] { visit(AT_FDCWD, arguments[0].c_str(), true, false); });
}

double walk(const Arguments& arguments) {
  return seconds([&] { visit(AT_FDCWD, arguments[0].c_str(), true, true); });
}

double statAll(const Arguments& arguments) {
  const auto paths = lines(arguments[0]);
  return seconds([&] {
    for (const std::string& path : paths) {
      struct stat status {};
      if (stat(path.c_str(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
      }
    }
  });
}

double missing(const Arguments& arguments) {
  std::vector<std::string> paths;
  const int count = std::stoi(arguments[1]);
  paths.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    paths.push_back(arguments[0] + "/missing-" + std::to_string(i));
  }
  const auto ask = [&] {
    for (const std::string& path : paths) {
      if (access(path.c_str(), F_OK) == 0) throw std::runtime_error(path + " is there");
    }
  };
  ask();
  return seconds(ask);
}

double readAll(const Arguments& arguments) {
  const auto paths = lines(arguments[0]);
  std::vector<char> buffer(1 << 16);
  return seconds([&] {
    for (const std::string& path : paths) {
      const File file(path);
      while (file.read(buffer) > 0) {
      }
    }
  });
}

double sequential(const Arguments& arguments) {
  std::vector<char> buffer(1 << 20);
  return seconds([&] {
    const File file(arguments[0]);
    while (file.read(buffer) > 0) {
    }
  });
}

double randomReads(const Arguments& arguments) {
  std::vector<char> buffer(4096);
  const File file(arguments[0]);
  std::mt19937_64 generator(1);
  std::uniform_int_distribution<off_t> place(0, file.size() / 4096 - 1);
  return seconds([&] {
    for (int i = 0; i < std::stoi(arguments[1]); ++i)
      file.readAt(buffer, place(generator) * 4096);
  });
}

class Counter : public tulo::platform::NSFileProviderEnumerationObserver {
 public:
  void didEnumerateItems(std::vector<tulo::platform::ItemPointer> items) override {
    // What any user of a listing reads of each item.
    for (const auto& item : items)
      bytes += item->filename().size() + item->itemIdentifier().size();
  }
  void finishEnumeratingUpToPage(std::optional<tulo::platform::NSFileProviderPage>) override {}
  void finishEnumeratingWithError(const tulo::platform::NSError& error) override {
    throw std::runtime_error("error " + std::to_string(error.code));
  }
  std::size_t bytes = 0;
};

double enumerate(const Arguments& arguments) {
  tulo::FileProviderExtension extension(
      std::make_shared<tulo::platform::NSFileProviderDomain>(arguments[0], arguments[0]));
  const auto counter = std::make_shared<Counter>();
  const double result =
      seconds([&] { extension.enumerator(arguments[1], {})->enumerateItems(counter, {}); });
  if (counter->bytes == 0) throw std::runtime_error(arguments[1] + " has no items");
  return result;
}

struct Task {
  Work work;
  std::size_t arguments;
};

const std::map<std::string, Task>& tasks() {
  static const std::map<std::string, Task> all = {{"names", {names, 1}},
                                                  {"list", {list, 1}},
                                                  {"walk", {walk, 1}},
                                                  {"stat", {statAll, 1}},
                                                  {"missing", {missing, 2}},
                                                  {"read", {readAll, 1}},
                                                  {"sequential", {sequential, 1}},
                                                  {"random", {randomReads, 2}},
                                                  {"enumerate", {enumerate, 2}},
                                                  {"create", {createFiles, 2}},
                                                  {"rename", {renameFiles, 2}},
                                                  {"remove", {removeFiles, 2}},
                                                  {"fill", {fillFile, 2}},
                                                  {"send", {sendCreates, 4}},
                                                  {"create-durably", {createDurably, 2}}};
  return all;
}

}  // namespace

int main(int argc, char** argv) {
  const Arguments words(argv + 1, argv + argc);
  const auto found = words.empty() ? tasks().end() : tasks().find(words[0]);
  if (found == tasks().end() || words.size() != found->second.arguments + 1) {
    std::fprintf(stderr, "usage: mount_probe WORK ARGUMENT...\nworks:");
    for (const auto& [name, task] : tasks())
      std::fprintf(stderr, " %s", name.c_str());
    std::fprintf(stderr, "\n");
    return 2;
  }
  try {
    std::printf("%.9f\n", found->second.work({words.begin() + 1, words.end()}));
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "mount_probe %s: %s\n", words[0].c_str(), error.what());
    return 1;
  }
}
