// A name with a mark before its extension, as long as a folder can hold it.
//
// Threads: a pure function.
#pragma once

#include <string>
#include <string_view>

namespace tulo {

// "name" + mark + ".ext". Where that has more than 255 bytes the front is cut, never inside a
// character or what belongs to one; the mark and an extension of ordinary length stay whole.
std::string markedName(std::string_view name, std::string_view mark);

// What such a name, made without regard to its length, is to be: it keeps the mark, which is the
// last that stands in brackets before the extension, and `more` follows that.
std::string cutMarkedName(std::string_view name, std::string_view more);

// At most `limit` bytes of the front, cut in the same way.
std::string_view cutName(std::string_view name, std::size_t limit);

}  // namespace tulo
