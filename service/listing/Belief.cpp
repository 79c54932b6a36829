#include "service/listing/Belief.h"

#include <algorithm>
#include <cerrno>

#include "service/base/ServiceLog.h"

namespace tulo {

namespace {

int told(const SourceError& error) {
  serviceLog().info("what the provider says is not believed: %{public}@", {error.what()});
  return error.number();
}

}  // namespace

std::optional<std::int64_t> Belief::children(const std::string& container) const try {
  if (!probe_) return std::nullopt;
  return probe_->children(container);
} catch (const SourceError&) {
  return std::nullopt;
}

int Belief::errorOfListing(const std::string& container, std::size_t items,
                           const std::optional<std::int64_t>& before) const try {
  if (!probe_) return 0;
  const auto listed = static_cast<std::int64_t>(items);
  const std::int64_t after = probe_->children(container);
  const auto [fewest, most] = std::minmax({after, before.value_or(after)});
  return listed < fewest || listed > most ? EAGAIN : 0;
} catch (const SourceError& error) {
  return told(error);
}

int Belief::errorOfAbsence(const std::string& item) const try {
  return probe_ && probe_->has(item) ? EAGAIN : 0;
} catch (const SourceError& error) {
  return told(error);
}

}  // namespace tulo
