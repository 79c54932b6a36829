// Random identifiers.
#pragma once

#include <string>

namespace tulo::platform {

// A fresh random UUID in its canonical form of 36 characters, upper case. Any thread.
std::string randomUUIDString();

}  // namespace tulo::platform
