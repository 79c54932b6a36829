#include "cli/Sizes.h"

#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

namespace tulo::cli {

namespace {

constexpr std::string_view kUnits = "KMGTP";
constexpr double kLargest = 9.0e18;

// The number at the front; `rest` is what follows it.
double numberAt(const std::string& text, std::string& rest) {
  char* end = nullptr;
  const bool starts = !text.empty() && std::isdigit(static_cast<unsigned char>(text[0])) != 0;
  const double value = starts ? std::strtod(text.c_str(), &end) : 0;
  if (!starts || !std::isfinite(value)) throw std::invalid_argument(text);
  rest = end;
  return value;
}

}  // namespace

std::int64_t parseSize(const std::string& text) {
  std::string unit;
  double value = numberAt(text, unit);
  if (!unit.empty()) {
    const auto index =
        kUnits.find(static_cast<char>(std::toupper(static_cast<unsigned char>(unit[0]))));
    const std::string rest = unit.substr(1);
    if (index == std::string_view::npos || !(rest.empty() || rest == "B" || rest == "iB")) {
      throw std::invalid_argument(text);
    }
    value *= std::pow(1024.0, static_cast<double>(index + 1));
  }
  if (value > kLargest) throw std::invalid_argument(text);
  return static_cast<std::int64_t>(value);
}

double parsePercentage(const std::string& text) {
  std::string rest;
  const double value = numberAt(text, rest);
  if (rest != "%" || value > 100) throw std::invalid_argument(text);
  return value / 100;
}

std::string sizeText(std::int64_t bytes) {
  double value = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (value >= 1024 && unit < kUnits.size()) {
    value /= 1024;
    ++unit;
  }
  std::array<char, 32> buffer{};
  if (unit == 0) {
    std::snprintf(buffer.data(), buffer.size(), "%lld B", static_cast<long long>(bytes));
  } else {
    std::snprintf(buffer.data(), buffer.size(), "%.1f %ciB", value, kUnits[unit - 1]);
  }
  return buffer.data();
}

std::string checkSizeText(const std::string& text) {
  try {
    parseSize(text);
    return {};
  } catch (const std::invalid_argument&) {
    return "\"" + text + "\" is not a size: a number with K, M, G or T expected, as in 10G";
  }
}

std::string checkSeconds(const std::string& text) {
  constexpr double kShortest = 0.001;
  constexpr double kLongest = 365.0 * 24 * 3600;
  char* end = nullptr;
  const double seconds = std::strtod(text.c_str(), &end);
  const bool isNumber = end != text.c_str() && *end == '\0';
  if (isNumber && seconds >= kShortest && seconds <= kLongest) return {};
  return "\"" + text + "\" is not a time: a number of seconds from 0.001 to a year expected";
}

std::string checkSizeOrPercentage(const std::string& text) {
  try {
    if (text.ends_with('%')) {
      parsePercentage(text);
    } else {
      parseSize(text);
    }
    return {};
  } catch (const std::invalid_argument&) {
    return "\"" + text + "\" is neither a percentage nor a size: 5% or 10G expected";
  }
}

}  // namespace tulo::cli
