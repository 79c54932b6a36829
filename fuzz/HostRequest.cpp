// What anybody may send to the host: it is a request, or the host says what was expected.
#include "fuzz/Input.h"
#include "host/base/HostError.h"
#include "host/server/RequestParser.h"

using tulo::fuzz::require;
using tulo::host::BadRequest;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const auto request = tulo::host::parseRequest(tulo::fuzz::Input(data, size).rest());
    require(!tulo::host::operationName(request).empty(), "a request has an operation");
    tulo::host::accountOf(request);
    tulo::host::stagedPathOf(request);
  } catch (const BadRequest& error) {
    require(*error.what() != '\0', "a refusal has a reason");
  }
  return 0;
}
