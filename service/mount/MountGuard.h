// The one place where what a handler throws becomes an answer. Private to the mount.
#pragma once

#include <exception>

#include "service/base/ServiceLog.h"
#include "service/errors/Errno.h"
#include "service/mount/Fuse.h"

namespace tulo {

// Runs a handler; whatever it throws answers the request.
template <typename Function>
void guarded(fuse_req_t request, const Function& function) {
  try {
    function();
  } catch (const std::exception& error) {
    serviceLog().error("request failed: %{public}@", {error.what()});
    fuse_reply_err(request, errnoFor(error));
  }
}

}  // namespace tulo
