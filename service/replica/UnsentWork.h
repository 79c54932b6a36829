// What a replica that nobody has open holds that the host has not got.
//
// Threads: any thread, as long as no service uses the directory.
// Errors: none from unsentIn; ContentError from layOutUnsent.
#pragma once

#include <cstdint>
#include <string>

namespace tulo {

// How many changes were not sent, and how many items exist only here. Of a replica that cannot be
// read something is taken to be there.
std::int64_t unsentIn(const std::string& directory);

// Makes the changed files of the replica in `directory` files in the folder `to`, at their places
// in the tree and without taking up room where the disk can do that. Where the database cannot be
// read their names are all that is known of their places.
void layOutUnsent(const std::string& directory, const std::string& to);

}  // namespace tulo
