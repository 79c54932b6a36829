#include "service/base/ServiceLog.h"

#include "platform/Deployment.h"

namespace tulo {

const platform::Log& serviceLog() {
  static const platform::Log log("tulo.service", "Service");
  return log;
}

}  // namespace tulo
