// How many descriptors the process may have open.
//
// Threads: any. Errors: none; without the right to more, it stays as it is.
#pragma once

namespace tulo {

// As many as the system allows this process at most. What sets the usual limit of 1,024 has
// programs in mind that wait with select(2), which none of ours does.
void raiseDescriptorLimit();

}  // namespace tulo
