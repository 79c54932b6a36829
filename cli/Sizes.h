// Sizes, percentages and times as they are written on a command line.
#pragma once

#include <cstdint>
#include <string>

namespace tulo::cli {

// "500M", "10G", "1.5T", "4096": powers of 1024. Throws std::invalid_argument.
std::int64_t parseSize(const std::string& text);
// "5%" as 0.05; 0 to 100. Throws std::invalid_argument.
double parsePercentage(const std::string& text);
// "1.5 GiB".
std::string sizeText(std::int64_t bytes);

// For CLI11: empty, or what is wrong.
std::string checkSizeText(const std::string& text);
std::string checkSizeOrPercentage(const std::string& text);
// A number of seconds from a thousandth to a year.
std::string checkSeconds(const std::string& text);

}  // namespace tulo::cli
