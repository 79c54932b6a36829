// Conversions between the platform's plain values and Foundation's objects.
//
// Objects that these functions return are autoreleased. Threads: pure functions.
#pragma once

#import <Foundation/Foundation.h>

#include <optional>
#include <string>
#include <string_view>

#include "platform/Error.h"
#include "platform/FileManager.h"
#include "platform/URL.h"

namespace tulo::apple {

// Goes through UTF-16, so that no byte order mark, NUL or spelling is lost or changed on the way.
// A byte that is not part of well-formed UTF-8 becomes U+FFFD.
NSString *toNSString(std::string_view text);

// Nothing becomes the empty text, half of a surrogate pair becomes U+FFFD.
std::string toString(NSString *string);

NSData *toNSData(const platform::Data &data);
platform::Data toData(NSData *data);

// The URL of a path that can name nothing (the empty one, one with a NUL) has no path.
NSURL *toNSURL(const platform::URL &url);
NSURL *toNSURL(const std::optional<platform::URL> &url);
std::optional<platform::URL> toURL(NSURL *url);

// An error with the system's own domain objects. An absent user info stays absent.
NSError *toNSError(const platform::NSError &error);
NSError *toNSError(const std::optional<platform::NSError> &error);

}  // namespace tulo::apple
