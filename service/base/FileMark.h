// Which file a path leads to, as a text: the next file of the same name has another one, although
// it may well be given the number of the one before. Empty when there is none.
//
// Threads: any thread.
#pragma once

#include <string>

namespace tulo {

// The same however often the file is written.
std::string fileMark(const std::string& path);

// Without the device, whose number may be another after the next start of the machine: fit to be
// written down.
std::string lastingFileMark(const std::string& path);

// Another one also after the file was changed in any way: for sockets, which nobody writes into,
// and which some disks do not note the birth of.
std::string changeMark(const std::string& path);

}  // namespace tulo
