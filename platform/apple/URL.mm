#include "platform/URL.h"

#include "platform/apple/AutoreleasePool.h"
#include "platform/apple/Values.h"

namespace tulo::platform {

URL URL::appendingPathComponent(std::string_view component) const {
  std::string path = path_;
  if (!path.empty() && path.back() != '/') path += '/';
  path += component;
  return URL(std::move(path));
}

std::string URL::absoluteString() const {
  const apple::AutoreleasePool pool;
  return apple::toString([apple::toNSURL(*this) absoluteString]);
}

}  // namespace tulo::platform
