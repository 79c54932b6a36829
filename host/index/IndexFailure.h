// What SQLite could not do, as the failure of a request.
//
// Threads: any thread.
#pragma once

#include <utility>

#include "host/base/HostError.h"
#include "sqlite/DatabaseError.h"

namespace tulo::host {

// disk_full where the disk is full, io otherwise.
OperationError indexFailure(const sqlite::DatabaseError& error);

// Does the work of an account at its edge: a DatabaseError leaves it as an OperationError.
template <typename Work>
decltype(auto) withIndex(Work&& work) {
  try {
    return std::forward<Work>(work)();
  } catch (const sqlite::DatabaseError& error) {
    throw indexFailure(error);
  }
}

}  // namespace tulo::host
