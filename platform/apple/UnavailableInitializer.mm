#include "platform/apple/UnavailableInitializer.h"

#include <cstdlib>

namespace tulo::apple {

void stopForUnavailableInitializer(id object) {
  NSLog(@"Fatal error: the initializer \"init()\" is not implemented for \"TuloFileProvider.%@\"",
        NSStringFromClass([object class]));
  std::abort();
}

}  // namespace tulo::apple
