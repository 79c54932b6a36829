#include "host/base/HostError.h"

#include <cerrno>
#include <system_error>

namespace tulo::host {

std::string errorText(int number) {
  return std::generic_category().message(number);
}

namespace {

std::string_view kindOfErrno(int number) {
  switch (number) {
    case ENOENT:
    case ENOTDIR:
      return kind::notFound;
    case ENOSPC:
    case EDQUOT:
      return kind::diskFull;
    case ENAMETOOLONG:
    case EILSEQ:
      return kind::invalidName;
    default:
      return kind::io;
  }
}

}  // namespace

OperationError systemError(int number, std::string_view what) {
  return OperationError(kindOfErrno(number), std::string(what) + ": " + errorText(number));
}

}  // namespace tulo::host
