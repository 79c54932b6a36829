#include "index/ItemID.h"

#include "platform/Text.h"

namespace tulo {
namespace {

std::string prefixed(std::string_view prefix, std::string_view ulid) {
  std::string identifier;
  identifier.reserve(prefix.size() + ulid.size());
  return identifier.append(prefix).append(ulid);
}

std::optional<ItemID::Parsed> parseWith(std::string_view prefix, bool isFolder,
                                        std::string_view identifier) {
  const auto length = platform::text::lengthOfPrefix(identifier, prefix);
  if (!length) return std::nullopt;
  return ItemID::Parsed{std::string(identifier.substr(*length)), isFolder};
}

}  // namespace

std::string ItemID::folder(std::string_view ulid) {
  return prefixed(folderPrefix, ulid);
}

std::string ItemID::file(std::string_view ulid) {
  return prefixed(filePrefix, ulid);
}

std::optional<ItemID::Parsed> ItemID::parse(std::string_view identifier) {
  if (auto folder = parseWith(folderPrefix, true, identifier)) return folder;
  return parseWith(filePrefix, false, identifier);
}

}  // namespace tulo
