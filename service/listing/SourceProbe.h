// Asks the source itself what the provider cannot say: whether it could be read, and what is in it.
//
// A provider reports by absence only. An item that it does not find and a folder that it shows
// empty look the same whether they are gone, or the source could not be opened, was locked, or
// failed half-way.
//
// Threads: every member may be called on any thread; the answer comes before it returns.
// Errors: SourceError when the source cannot be read the way the provider reads it.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace tulo {

// number() is the errno for a program that wants to know what is there.
class SourceError : public std::runtime_error {
 public:
  SourceError(int number, const std::string& message)
      : std::runtime_error(message), number_(number) {}
  int number() const { return number_; }

 private:
  int number_;
};

class SourceProbe {
 public:
  virtual ~SourceProbe() = default;

  // How many items the container has, by the container's identifier.
  virtual std::int64_t children(const std::string& container) const = 0;
  // Whether there is such an item.
  virtual bool has(const std::string& item) const = 0;
};

}  // namespace tulo
