// Places in which a test can have the process killed, to see what a restart makes of it.
//
// TULO_FAULT_POINT=name kills when `name` is reached, name:n the n-th time. Without the variable a
// fault point costs one load.
//
// Threads: every member may be called on any thread.
#pragma once

#include <string_view>

namespace tulo {

void faultPoint(std::string_view name);

}  // namespace tulo
