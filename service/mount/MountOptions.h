// How the account is mounted.
//
// Threads: pure functions.
#pragma once

#include <string>

namespace tulo {

struct MountOptions {
  std::string mountPoint;
  std::string name;  // shown as the mount's source
  bool allowOther = false;
  bool readWrite = false;
  bool debug = false;
};

// The options as mount(8) takes them.
std::string optionText(const MountOptions& options);

}  // namespace tulo
