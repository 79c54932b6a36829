#include "platform/URL.h"

#include <filesystem>
#include <system_error>

namespace tulo::platform {

namespace {

// Characters that stand in the path of a file URL as they are, besides letters and digits.
constexpr std::string_view plainPunctuation = "!$&'()*+,-./:=@_~";

bool isPlain(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
         plainPunctuation.find(c) != std::string_view::npos;
}

std::string percentEncoded(std::string_view path) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string encoded;
  encoded.reserve(path.size());
  for (const char c : path) {
    if (isPlain(c)) {
      encoded += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      encoded += {'%', digits[byte >> 4U], digits[byte & 0xFU]};
    }
  }
  return encoded;
}

std::string absolutePath(const std::string& path) {
  if (path.starts_with('/')) return path;
  std::error_code failure;
  const std::string directory = std::filesystem::current_path(failure).string();
  return directory.ends_with('/') ? directory + path : directory + '/' + path;
}

}  // namespace

URL URL::appendingPathComponent(std::string_view component) const {
  std::string path = path_;
  if (!path.empty() && path.back() != '/') path += '/';
  path += component;
  return URL(std::move(path));
}

std::string URL::absoluteString() const {
  return "file://" + percentEncoded(absolutePath(path_));
}

}  // namespace tulo::platform
