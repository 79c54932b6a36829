#import <UniformTypeIdentifiers/UniformTypeIdentifiers.h>

#include "platform/UTType.h"

#include "platform/apple/AutoreleasePool.h"
#include "platform/apple/ContentType.h"
#include "platform/apple/Values.h"

namespace tulo::apple {

namespace {

UTType *dataType(std::string_view extension) {
  return [UTType typeWithFilenameExtension:toNSString(extension) conformingToType:UTTypeData];
}

}  // namespace

UTType *toUTType(const platform::UTType &type) {
  if (type == platform::UTType::folder()) return UTTypeFolder;
  if (type == platform::UTType::data()) return UTTypeData;
  return [UTType typeWithIdentifier:toNSString(type.identifier())];
}

std::optional<platform::UTType> toType(UTType *type) {
  if (type == nil) return std::nullopt;
  return platform::UTType(toString([type identifier]));
}

}  // namespace tulo::apple

namespace tulo::platform {

std::optional<UTType> UTType::dataTypeWithFilenameExtension(std::string_view extension) {
  if (extension.empty()) return std::nullopt;
  const apple::AutoreleasePool pool;
  return apple::toType(apple::dataType(extension));
}

}  // namespace tulo::platform
