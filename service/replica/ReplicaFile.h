// The replica's database as a file: made, brought up to date, and set aside when it is damaged.
//
// Threads: every member may be called on any thread.
// Errors: DatabaseError.
#pragma once

#include <string>

namespace tulo {

namespace sqlite {
class DatabaseError;
}

class ReplicaFile {
 public:
  // Opens or creates the database in the directory, which must exist. A damaged database is set
  // aside under another name, and a new one begun.
  explicit ReplicaFile(const std::string& directory);

  const std::string& path() const { return path_; }
  // Where a damaged database was set aside; empty otherwise.
  const std::string& setAside() const { return setAside_; }
  // After an error that means damage the next start looks whether the database is whole.
  void suspect(const sqlite::DatabaseError& error) const;

 private:
  std::string path_;
  std::string setAside_;
};

}  // namespace tulo
