// Text for people, of what comes from the service.
#pragma once

#include <cstdint>
#include <string>

#include "service/control/Replies.h"

namespace tulo::cli {

// In one line, in which a file's name cannot do anything to the terminal.
std::string printable(std::string text);

// What went wrong with a change, without the advice that may follow it; empty when nothing did.
std::string reasonOf(const control::PendingChange& change);

// "1 change", "2 changes".
std::string counted(std::int64_t count, const std::string& noun);

// As a shell takes it for one word.
std::string shellWord(const std::string& text);

// What failed: a path, or where none is known, a number.
std::string nameOf(const control::Failure& failure);

// On standard error: what failed, and why the service refused.
void printFailures(const control::Outcome& outcome);

}  // namespace tulo::cli
