// A look into the replica's database past its functions: for what a test has to break or to count.
#pragma once

#include <cstdint>
#include <string>

#include "service/replica/Replica.h"

namespace tulo::test {

inline void runSql(ReplicaReader& session, const std::string& sql) {
  session.connection().execute(sql);
}

inline std::int64_t askSql(ReplicaReader& session, const std::string& sql) {
  return session.connection().integer(sql);
}

}  // namespace tulo::test
