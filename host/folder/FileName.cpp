#include "host/folder/FileName.h"

#include "host/base/HostError.h"

namespace tulo::host {

namespace {

// An extension longer than this is part of the name that may be shortened.
constexpr std::size_t longestExtension = 32;

std::size_t extensionOffset(std::string_view name) {
  const auto dot = name.rfind('.');
  const bool none = dot == std::string_view::npos || dot == 0;
  return none || name.size() - dot > longestExtension ? name.size() : dot;
}

// Cuts at the beginning of a UTF-8 sequence, so that what is left stays valid.
std::string_view shortened(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text;
  while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0) == 0x80)
    --limit;
  return text.substr(0, limit);
}

}  // namespace

std::string whyInvalidName(std::string_view name) {
  if (name.empty()) return "the name is empty";
  if (name == "." || name == "..") return "the name is \"" + std::string(name) + "\"";
  if (name.find('/') != std::string_view::npos) return "the name contains \"/\"";
  if (name.find('\0') != std::string_view::npos) return "the name contains a NUL";
  if (name.size() > maximumNameLength) {
    return "the name has " + std::to_string(name.size()) + " bytes, more than " +
           std::to_string(maximumNameLength);
  }
  return {};
}

void requireValidName(std::string_view name) {
  if (const std::string why = whyInvalidName(name); !why.empty()) {
    throw OperationError(kind::invalidName, why);
  }
}

std::string diskNameVariant(std::string_view name, unsigned number) {
  if (number <= 1) return std::string(name);
  const auto dot = extensionOffset(name);
  const std::string_view extension = name.substr(dot);
  const std::string mark = "~" + std::to_string(number);
  const std::size_t room = maximumNameLength - mark.size() - extension.size();
  return std::string(shortened(name.substr(0, dot), room)) + mark + std::string(extension);
}

}  // namespace tulo::host
