#include "platform/Bundle.h"

#include "platform/apple/AutoreleasePool.h"
#include "platform/apple/Values.h"

namespace tulo::platform {

std::optional<std::string> mainBundleInfoString(std::string_view key) {
  const apple::AutoreleasePool pool;
  const id value = [[[NSBundle mainBundle] infoDictionary] objectForKey:apple::toNSString(key)];
  if (![value isKindOfClass:[NSString class]]) return std::nullopt;
  return apple::toString(value);
}

}  // namespace tulo::platform
