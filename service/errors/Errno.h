// What a program in the mount is told when the provider cannot do what it asked.
//
// Threads: pure functions.
#pragma once

#include <exception>
#include <string>

#include "platform/Error.h"

namespace tulo {

// The errno for a provider's error. Every error has one; what is not known is an input/output
// error.
int errnoFor(const platform::NSError& error);

// The errno for what the replica or a file of contents threw: no room and no descriptors are told
// apart, all else is an input/output error.
int errnoFor(const std::exception& error);

// What contents cannot be handed to the host for: the fault is this machine's, and has an errno.
platform::NSError handoverError(int number);
bool isHandoverError(const platform::NSError& error);

// Whether nothing more can be opened at the moment, which says nothing of what was to be opened.
bool isShortOfDescriptors(int number);

// Whether the same request may succeed later without anybody changing it.
bool isTransient(const platform::NSError& error);

// The error in words, for the status and the log.
std::string descriptionOf(const platform::NSError& error);

}  // namespace tulo
