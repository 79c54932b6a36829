#include "service/replica/AccountIdentity.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "platform/linux/FileDescriptor.h"
#include "service/base/FileMark.h"
#include "service/errors/ContentError.h"
#include "sqlite/Connection.h"

namespace tulo {

namespace {

using nlohmann::json;

std::string wordOfTheHost(const std::string& index) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(index, error)) return {};
  try {
    sqlite::Connection database(index, sqlite::Connection::Mode::readOnly);
    sqlite::Statement row = database.prepare("SELECT id FROM host_identity LIMIT 1");
    return row.step() ? std::string(row.text(0)) : std::string();
  } catch (const sqlite::DatabaseError&) {
    // A host need not have the table, and an index that cannot be read says nothing.
    return {};
  }
}

// Bytes that are no text are carried all the same: each byte as a character.
std::string widened(const std::string& bytes) {
  std::string text;
  for (const char each : bytes) {
    const auto byte = static_cast<unsigned char>(each);
    if (byte < 0x80) {
      text += each;
    } else {
      text += static_cast<char>(0xC0 | (byte >> 6));
      text += static_cast<char>(0x80 | (byte & 0x3F));
    }
  }
  return text;
}

std::string narrowed(const std::string& text) {
  std::string bytes;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto first = static_cast<unsigned char>(text[at]);
    if (first < 0x80 || at + 1 == text.size()) {
      bytes += text[at];
    } else {
      const auto second = static_cast<unsigned char>(text[++at]);
      bytes += static_cast<char>((first << 6) | (second & 0x3F));
    }
  }
  return bytes;
}

void writeDurably(const std::string& path, const std::string& text) {
  const FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  const bool written =
      file && ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
  if (!written || ::fsync(file.get()) != 0) {
    throw ContentError(errno, "cannot write " + path + ": " + std::strerror(errno));
  }
}

}  // namespace

AccountIdentity identityAt(const std::string& container, const std::string& database) {
  std::error_code error;
  const std::filesystem::path path = std::filesystem::weakly_canonical(container, error);
  AccountIdentity result;
  result.container = error ? container : path.string();
  result.directory = lastingFileMark(container);
  if (!database.empty()) result.account = wordOfTheHost(container + '/' + database);
  return result;
}

bool areOfOneAccount(const AccountIdentity& one, const AccountIdentity& other) {
  if (!one.account.empty() && !other.account.empty()) return one.account == other.account;
  if (!one.directory.empty() && !other.directory.empty()) return one.directory == other.directory;
  return one.container == other.container;
}

AccountIdentity joined(const AccountIdentity& before, const AccountIdentity& now) {
  AccountIdentity result = now;
  if (result.account.empty()) result.account = before.account;
  if (result.directory.empty()) result.directory = before.directory;
  return result;
}

std::optional<AccountIdentity> readIdentity(const std::string& path) {
  std::ifstream file(path);
  const json content = json::parse(file, nullptr, false);
  if (!content.is_object()) return std::nullopt;
  const auto field = [&](const char* name) {
    return narrowed(content.contains(name) && content[name].is_string() ? content[name] : "");
  };
  return AccountIdentity{field("account"), field("container"), field("directory")};
}

void writeIdentity(const std::string& path, const AccountIdentity& identity) {
  const json content = {{"account", widened(identity.account)},
                        {"container", widened(identity.container)},
                        {"directory", widened(identity.directory)}};
  const std::string fresh = path + ".new";
  writeDurably(fresh, content.dump() + '\n');
  if (::rename(fresh.c_str(), path.c_str()) != 0) {
    throw ContentError(errno, "cannot write " + path + ": " + std::strerror(errno));
  }
}

}  // namespace tulo
