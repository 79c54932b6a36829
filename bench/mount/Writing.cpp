#include "bench/mount/Writing.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <future>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <system_error>

#include "bench/BareExchange.h"

namespace tulo::bench {
namespace {

constexpr std::size_t kFileSize = 4096;
constexpr std::size_t kPiece = 1 << 20;

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

template <typename Function>
double seconds(const Function& function) {
  const auto begin = std::chrono::steady_clock::now();
  function();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

std::vector<std::string> paths(const Arguments& arguments, const std::string& prefix) {
  const int count = std::stoi(arguments[1]);
  std::vector<std::string> result;
  result.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    result.push_back(arguments[0] + '/' + prefix + std::to_string(i));
  }
  return result;
}

void writePieces(const std::string& path, const std::string& piece, int count, bool durably) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (file < 0) fail(path);
  for (int i = 0; i < count; ++i) {
    if (write(file, piece.data(), piece.size()) != static_cast<ssize_t>(piece.size())) fail(path);
  }
  if (durably && fsync(file) != 0) fail(path);
  if (close(file) != 0) fail(path);
}

double create(const Arguments& arguments, bool durably) {
  const std::string piece(kFileSize, 'w');
  const auto files = paths(arguments, "new-");
  return seconds([&] {
    for (const std::string& path : files)
      writePieces(path, piece, 1, durably);
  });
}

// Like text: not all one byte, and not the same in each piece of a page.
std::string samplePiece() {
  std::string piece(kPiece, '\0');
  for (std::size_t i = 0; i < piece.size(); ++i)
    piece[i] = static_cast<char>(i * 7 + i / 4096);
  return piece;
}

nlohmann::json ask(const std::string& container, const nlohmann::json& request) {
  const std::string text = request.dump() + '\n';
  auto reply = nlohmann::json::parse(bareExchange(container + "/fp.sock", text));
  if (!reply.value("ok", false)) throw std::runtime_error("the host says " + reply.dump());
  return reply;
}

std::vector<std::string> stagedFiles(const std::string& container, const std::string& name,
                                     int count) {
  const std::string folder = container + "/fp-upload";
  if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) fail(folder);
  std::vector<std::string> result;
  const std::string contents(kFileSize, 'w');
  for (int i = 0; i < count; ++i) {
    result.push_back(folder + '/' + name + '-' + std::to_string(i));
    writePieces(result.back(), contents, 1, false);
  }
  return result;
}

}  // namespace

double createFiles(const Arguments& arguments) {
  return create(arguments, false);
}

double createDurably(const Arguments& arguments) {
  return create(arguments, true);
}

double renameFiles(const Arguments& arguments) {
  const auto from = paths(arguments, "new-");
  const auto to = paths(arguments, "renamed-");
  return seconds([&] {
    for (std::size_t i = 0; i < from.size(); ++i) {
      if (rename(from[i].c_str(), to[i].c_str()) != 0) fail(from[i]);
    }
  });
}

double removeFiles(const Arguments& arguments) {
  const auto files = paths(arguments, "renamed-");
  return seconds([&] {
    for (const std::string& path : files) {
      if (unlink(path.c_str()) != 0) fail(path);
    }
  });
}

double fillFile(const Arguments& arguments) {
  const std::string piece = samplePiece();
  return seconds([&] { writePieces(arguments[0], piece, std::stoi(arguments[1]), false); });
}

double sendCreates(const Arguments& arguments) {
  const std::string& container = arguments[0];
  const std::string& name = arguments[1];
  const nlohmann::json about{{"op", "create"}, {"account", "primary"}};
  nlohmann::json folder = about;
  folder["name"] = name;
  const std::string parent = ask(container, folder).at("ulid");
  const auto files = stagedFiles(container, name, std::stoi(arguments[2]));
  std::atomic<std::size_t> next = 0;
  const auto work = [&] {
    for (std::size_t i = next++; i < files.size(); i = next++) {
      nlohmann::json request = about;
      request["name"] = "new-" + std::to_string(i);
      request["parent"] = parent;
      request["path"] = files[i];
      ask(container, request);
    }
  };
  return seconds([&] {
    std::vector<std::future<void>> senders(std::stoul(arguments[3]));
    for (std::future<void>& sender : senders)
      sender = std::async(std::launch::async, work);
    for (std::future<void>& sender : senders)
      sender.get();
  });
}

}  // namespace tulo::bench
