#include "platform/linux/Container.h"

#include "tests/support/Container.h"

namespace tulo::test {

void setCurrentContainer(const std::string& path) {
  platform::setContainerDirectory(path);
}

}  // namespace tulo::test
