#include "host/server/Faults.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "host/base/HostError.h"

namespace tulo::host {

namespace {

constexpr std::string_view anyOperation = "any";
constexpr std::array<std::string_view, 6> operations = {"fetch",  "thumbnail", "create",
                                                        "modify", "delete",    anyOperation};

std::optional<std::int64_t> number(std::string_view text) {
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < 0) return std::nullopt;
  return value;
}

// "OP=REST", where OP is known.
std::pair<std::string, std::string_view> split(std::string_view text, const std::string& expected) {
  const auto equals = text.find('=');
  const std::string_view operation = text.substr(0, std::min(equals, text.size()));
  const bool isKnown =
      std::find(operations.begin(), operations.end(), operation) != operations.end();
  if (equals == std::string_view::npos || equals + 1 == text.size() || !isKnown) {
    throw StartError("\"" + std::string(text) + "\": expected " + expected +
                     " with OP one of fetch, thumbnail, create, modify, delete, any");
  }
  return {std::string(operation), text.substr(equals + 1)};
}

bool concerns(std::string_view rule, std::string_view operation) {
  return rule == anyOperation || rule == operation;
}

}  // namespace

Fault parseFault(std::string_view text) {
  auto [operation, rest] = split(text, "OP=KIND or OP=KIND:N");
  const auto colon = rest.rfind(':');
  if (colon == std::string_view::npos) return {std::move(operation), std::string(rest), {}};
  const auto times = number(rest.substr(colon + 1));
  if (!times || *times == 0 || colon == 0) {
    throw StartError("\"" + std::string(text) +
                     "\": expected OP=KIND:N with N a number of requests, at least 1");
  }
  return {std::move(operation), std::string(rest.substr(0, colon)), times};
}

Delay parseDelay(std::string_view text) {
  auto [operation, rest] = split(text, "OP=MS");
  constexpr std::chrono::milliseconds longest = std::chrono::days(1);
  const auto time = number(rest);
  if (!time || *time > longest.count()) {
    throw StartError("\"" + std::string(text) +
                     "\": expected OP=MS with MS a number of milliseconds, at most " +
                     std::to_string(longest.count()));
  }
  return {std::move(operation), std::chrono::milliseconds(*time)};
}

void Faults::add(Fault fault) {
  const MutexLock lock(mutex_);
  faults_.push_back(std::move(fault));
}

void Faults::add(const Delay& delay) {
  const MutexLock lock(mutex_);
  delays_[delay.operation] = delay.time;
}

void Faults::clear() {
  const MutexLock lock(mutex_);
  faults_.clear();
  delays_.clear();
}

std::optional<std::string> Faults::take(std::string_view operation) {
  const MutexLock lock(mutex_);
  const auto found = std::find_if(faults_.begin(), faults_.end(), [&](const Fault& fault) {
    return concerns(fault.operation, operation);
  });
  if (found == faults_.end()) return std::nullopt;
  std::string kind = found->kind;
  if (found->times && --*found->times == 0) faults_.erase(found);
  return kind;
}

std::chrono::milliseconds Faults::delay(std::string_view operation) {
  const MutexLock lock(mutex_);
  std::chrono::milliseconds total{0};
  for (const auto& [rule, time] : delays_) {
    if (concerns(rule, operation)) total += time;
  }
  return total;
}

}  // namespace tulo::host
