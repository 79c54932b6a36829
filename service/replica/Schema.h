// The tables of the replica, and how an older file is brought up to them.
#pragma once

#include "sqlite/Connection.h"

namespace tulo::schema {

inline constexpr int kVersion = 3;

// Creates or migrates, each step in a transaction of its own.
// Throws DatabaseError, also for a file of a newer version.
void bringUpToDate(sqlite::Connection& database);

}  // namespace tulo::schema
