// The test's executable says the version that the extension's bundle says.
#include "platform/Deployment.h"
#include "tests/apple/sdk/StandIns.h"

namespace {

const bool versionIsSet = [] {
  tulo::sdk::setMainBundleString("CFBundleShortVersionString",
                                 std::string(tulo::deployment::version).c_str());
  return true;
}();

}  // namespace
