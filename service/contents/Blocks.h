// The disk's measure of files.
#pragma once

#include <cstdint>

namespace tulo {

constexpr std::int64_t bytesIn(std::int64_t blocks) {
  return 512 * blocks;
}

}  // namespace tulo
