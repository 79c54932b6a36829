// Prints platform/apple/GraphemeBreakTable.h from the Unicode data of the ICU that it is built
// with.
#include <unicode/uchar.h>
#include <unicode/uvernum.h>

#include <cstdio>
#include <string_view>

namespace {

std::string_view className(UChar32 codePoint) {
  switch (u_getIntPropertyValue(codePoint, UCHAR_GRAPHEME_CLUSTER_BREAK)) {
    case U_GCB_CR:
      return "carriageReturn";
    case U_GCB_LF:
      return "lineFeed";
    case U_GCB_CONTROL:
      return "control";
    case U_GCB_EXTEND:
      return "extend";
    case U_GCB_ZWJ:
      return "zeroWidthJoiner";
    case U_GCB_SPACING_MARK:
      return "spacingMark";
    case U_GCB_PREPEND:
      return "prepend";
    case U_GCB_REGIONAL_INDICATOR:
      return "regionalIndicator";
    case U_GCB_L:
      return "hangulL";
    case U_GCB_V:
      return "hangulV";
    case U_GCB_T:
      return "hangulT";
    default:
      return u_hasBinaryProperty(codePoint, UCHAR_EXTENDED_PICTOGRAPHIC) ? "pictographic" : "";
  }
}

void printRange(UChar32 first, UChar32 last, std::string_view name) {
  std::printf("    {0x%04X, 0x%04X, GraphemeBreak::%.*s},\n", static_cast<unsigned>(first),
              static_cast<unsigned>(last), static_cast<int>(name.size()), name.data());
}

}  // namespace

int main() {
  std::printf(
      "// Made by tests/apple/tools/MakeGraphemeBreakTable.cpp from Unicode %s; the syllables\n"
      "// from U+AC00 to U+D7A3 are left out, since their class follows from their number.\n"
      "#pragma once\n\n#include \"platform/apple/GraphemeBreaks.h\"\n\n"
      "namespace tulo::apple {\n\n"
      "inline constexpr GraphemeBreakRange graphemeBreakTable[] = {\n",
      U_UNICODE_VERSION);
  UChar32 first = 0;
  std::string_view name = className(0);
  for (UChar32 codePoint = 1; codePoint <= 0x110000; ++codePoint) {
    const std::string_view next = codePoint <= 0x10FFFF ? className(codePoint) : "";
    if (next == name && codePoint <= 0x10FFFF) continue;
    if (!name.empty()) printRange(first, codePoint - 1, name);
    first = codePoint;
    name = next;
  }
  std::printf("};\n\n}  // namespace tulo::apple\n");
}
