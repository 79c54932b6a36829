// How many file descriptors this process has open. A thread that is just beginning may have some
// for a moment (a sanitizer looks where its stack is), so a test for leaks asks for no more than
// before.
#pragma once

#include <cstddef>

namespace tulo::test {

std::size_t openDescriptors();

}  // namespace tulo::test
