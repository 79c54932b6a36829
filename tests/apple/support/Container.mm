#include "tests/support/Container.h"

#include "tests/apple/sdk/StandIns.h"

namespace tulo::test {

void setCurrentContainer(const std::string &path) { sdk::setGroupContainer(path); }

}  // namespace tulo::test
