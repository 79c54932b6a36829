// Translates failures of host requests into the system's vocabulary.
#pragma once

#include <exception>
#include <string_view>

#include "platform/Error.h"

namespace tulo {

// Stands for what is thrown and is no std::exception: what the platform's own frameworks raise. It
// must not leave a worker, or the process would end with a completion that was never called.
class ForeignException : public std::exception {
 public:
  const char* what() const noexcept override { return "the platform raised an exception"; }
};

// The error to report to the system for what a host request threw. Writes one error line that names
// the operation, the item and the failure, except for an unreachable host, which is no news.
// `ulid` and `op` are for that line only. May be called on any thread.
platform::NSError providerError(const std::exception& error, std::string_view ulid,
                                std::string_view op);

}  // namespace tulo
