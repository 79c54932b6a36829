// How many file descriptors this process has open.
#pragma once

#include <cstddef>

namespace tulo::test {

std::size_t openDescriptors();

}  // namespace tulo::test
