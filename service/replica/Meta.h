// What the replica notes of itself, by key.
//
// Threads: the functions run inside the transaction or reading session that they are given.
// Errors: DatabaseError.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "service/replica/ReplicaWriter.h"

namespace tulo::meta {

// 0, or empty, of a key that is not there.
std::int64_t integer(ReplicaReader& reader, std::string_view key);
std::string text(ReplicaReader& reader, std::string_view key);

void set(ReplicaWriter& writer, std::string_view key, std::int64_t value);
void set(ReplicaWriter& writer, std::string_view key, std::string_view value);
void remove(ReplicaWriter& writer, std::string_view key);

}  // namespace tulo::meta
