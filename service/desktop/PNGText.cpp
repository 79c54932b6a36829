#include "service/desktop/PNGText.h"

#include <cstdint>
#include <fstream>
#include <string_view>

namespace tulo {

namespace {

constexpr std::string_view kSignature("\x89PNG\r\n\x1a\n", 8);
// Larger texts than any program writes into a thumbnail; a length field may hold anything.
constexpr std::uint32_t kLongestText = 64 * 1024;
constexpr std::streamoff kChecksumSize = 4;

struct ChunkHeader {
  std::uint32_t length = 0;
  std::string type;
};

std::optional<std::string> bytes(std::istream& file, std::size_t count) {
  std::string result(count, '\0');
  if (!file.read(result.data(), static_cast<std::streamsize>(count))) return std::nullopt;
  return result;
}

std::optional<ChunkHeader> nextHeader(std::istream& file) {
  const auto raw = bytes(file, 8);
  if (!raw) return std::nullopt;
  ChunkHeader header;
  for (int i = 0; i < 4; ++i) {
    header.length = header.length << 8 | static_cast<unsigned char>((*raw)[static_cast<size_t>(i)]);
  }
  header.type = raw->substr(4);
  return header;
}

}  // namespace

std::optional<std::map<std::string, std::string>> pngTexts(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (bytes(file, kSignature.size()) != kSignature) return std::nullopt;
  std::map<std::string, std::string> texts;
  while (const auto header = nextHeader(file)) {
    if (header->type == "IDAT" || header->type == "IEND") return texts;
    if (header->type == "tEXt" && header->length <= kLongestText) {
      const auto chunk = bytes(file, header->length);
      if (!chunk) return std::nullopt;
      const auto end = chunk->find('\0');
      if (end != std::string::npos) texts[chunk->substr(0, end)] = chunk->substr(end + 1);
      file.seekg(kChecksumSize, std::ios::cur);
    } else {
      file.seekg(std::streamoff{header->length} + kChecksumSize, std::ios::cur);
    }
  }
  return std::nullopt;
}

}  // namespace tulo
