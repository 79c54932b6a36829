// Text for people, of what comes from the service.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace tulo::cli {

// In one line, in which a file's name cannot do anything to the terminal.
std::string printable(const nlohmann::json& value);

// What went wrong with a change, without the advice that may follow it; empty when nothing did.
std::string reasonOf(const nlohmann::json& change);

// "1 change", "2 changes".
std::string counted(std::int64_t count, const std::string& noun);

// As a shell takes it for one word.
std::string shellWord(const std::string& text);

// On standard error: the failures of an answer, and its error.
void printFailures(const nlohmann::json& answer);

}  // namespace tulo::cli
