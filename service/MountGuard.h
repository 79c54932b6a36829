// Private to the mount.
#pragma once

#include <cerrno>

#include "service/MountSession.h"
#include "service/ServiceLog.h"

namespace tulo {

// Runs a handler; whatever it throws answers the request.
template <typename Function>
void guarded(fuse_req_t request, const Function& function) {
  try {
    function();
  } catch (const DatabaseError& error) {
    serviceLog().error("request failed: %{public}@", {error.what()});
    fuse_reply_err(request, error.code() == SQLITE_FULL ? ENOSPC : EIO);
  } catch (const std::exception& error) {
    serviceLog().error("request failed: %{public}@", {error.what()});
    fuse_reply_err(request, EIO);
  }
}

}  // namespace tulo
