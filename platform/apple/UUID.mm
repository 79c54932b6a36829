#include "platform/UUID.h"

#include "platform/apple/AutoreleasePool.h"
#include "platform/apple/Values.h"

namespace tulo::platform {

std::string randomUUIDString() {
  const apple::AutoreleasePool pool;
  return apple::toString([[NSUUID UUID] UUIDString]);
}

}  // namespace tulo::platform
