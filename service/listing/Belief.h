// Whether the provider's word that something is not there may be believed.
//
// Counting what the source has proves more than that it can be read just before and just after: a
// lock that was let go of at the last moment, or a descriptor that was free again, leave a short
// listing between two good looks. What is changed while both look is told apart by counting once
// before, too.
//
// Threads: every member may be called on any thread.
// Errors: none; a source that cannot be read is an answer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "service/listing/SourceProbe.h"

namespace tulo {

class Belief {
 public:
  // So often a provider is asked again that says something else than its source.
  static constexpr unsigned kMostAnswers = 4;

  // Without a probe everything is believed.
  explicit Belief(std::shared_ptr<const SourceProbe> probe = nullptr) : probe_(std::move(probe)) {}

  // What is in the container; nothing when that cannot be told.
  std::optional<std::int64_t> children(const std::string& container) const;

  // 0 when a listing with so many items is all that there is in the container. EAGAIN when the
  // source has more or fewer: the provider is to be asked again, with what children() says before.
  // Else why the source cannot be read.
  int errorOfListing(const std::string& container, std::size_t items,
                     const std::optional<std::int64_t>& before) const;
  // 0 when there is no such item, EAGAIN when there is; else why the source cannot be read.
  int errorOfAbsence(const std::string& item) const;
  // Whether it is known that there is no such item.
  bool isAbsent(const std::string& item) const {
    return probe_ != nullptr && errorOfAbsence(item) == 0;
  }

 private:
  std::shared_ptr<const SourceProbe> probe_;
};

}  // namespace tulo
