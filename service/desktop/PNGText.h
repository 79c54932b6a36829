// The texts that a PNG file carries before its picture, read without decoding the picture.
//
// Threads: a pure function but for the file that it reads.
#pragma once

#include <map>
#include <optional>
#include <string>

namespace tulo {

// Keyword and text of each uncompressed Latin-1 text chunk ("tEXt") that stands before the picture
// data; the last one of a keyword counts. Nothing for a file that cannot be read or is not a
// well-formed PNG file up to there.
std::optional<std::map<std::string, std::string>> pngTexts(const std::string& path);

}  // namespace tulo
