// A file of contents that cannot be taken, read or kept.
#pragma once

#include <stdexcept>
#include <string>

namespace tulo {

// What the provider handed over cannot be taken, or a file cannot be kept. number() is the errno.
class ContentError : public std::runtime_error {
 public:
  ContentError(int number, const std::string& message)
      : std::runtime_error(message), number_(number) {}
  int number() const { return number_; }

 private:
  int number_;
};

}  // namespace tulo
