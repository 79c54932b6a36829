// A look into the replica's database past its functions: for what a test has to break or to count.
#pragma once

#include <cstdint>
#include <string>

#include "service/replica/ReplicaReader.h"
#include "service/replica/Sql.h"

namespace tulo::test {

inline void runSql(ReplicaReader& session, const std::string& sql) {
  sqlOf(session).execute(sql);
}

inline std::int64_t askSql(ReplicaReader& session, const std::string& sql) {
  return sqlOf(session).integer(sql);
}

}  // namespace tulo::test
