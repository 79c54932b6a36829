#include "host/index/IndexFailure.h"

#include <string>

namespace tulo::host {

OperationError indexFailure(const sqlite::DatabaseError& error) {
  return OperationError(error.meansFullDisk() ? kind::diskFull : kind::io,
                        "index: " + std::string(error.what()));
}

}  // namespace tulo::host
