// Places in which a test can have the process killed, to see what a restart makes of it, or have
// something happen meanwhile.
//
// TULO_FAULT_POINT=name kills when `name` is reached, name:n the n-th time. Without the variable a
// fault point costs one load.
//
// Threads: every member may be called on any thread.
#pragma once

#include <functional>
#include <string_view>

namespace tulo {

void faultPoint(std::string_view name);

// Calls the function at every fault point from now on, for tests that want something to happen at
// just that moment; null: no more. Not while another thread may be at one.
void setFaultHook(std::function<void(std::string_view)> hook);

}  // namespace tulo
