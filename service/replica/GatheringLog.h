// A VFS for SQLite whose write-ahead log is written with one system call for each transaction.
//
// SQLite writes a log frame by frame, each in two pieces, and a transaction has several frames.
// Here they are gathered until the one that commits, which goes to the file together with all
// before it: nobody is told of the transaction before that write has ended, and without its last
// frame it does not count, so what a crash leaves is the same.
//
// Threads: like the connections that use it.
// Errors: a write that fails makes the commit fail.
#pragma once

namespace tulo {

// The name to be given to sqlite3_open_v2: "unix-excl" but for the log.
const char* gatheringVfs();

}  // namespace tulo
