// What the control socket is asked, as both of its ends see it: one struct for each shape of
// request, and its form on the wire.
//
// On the wire a request is one object: "op" says what is asked, the other fields are those of the
// struct. Fields that nobody knows are ignored; what a missing one means stands beside it here.
//
// Threads: plain values.
// Errors: from_json throws json::exception for a field of another type than it must have.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/base/Time.h"
#include "service/replica/Ids.h"

namespace tulo::control {

enum class Operation {
  status,
  pin,
  unpin,
  download,
  evict,
  changes,
  flush,
  retry,
  discard,
  unmount,
};

const char* textOf(Operation operation);
std::optional<Operation> operationNamed(std::string_view text);

// The whole request: `fields` are those of one of the structs below, or none.
nlohmann::json requestOf(Operation operation, const nlohmann::json& fields);
// What is asked, as it came; empty when nothing is.
std::string operationText(const nlohmann::json& request);

// pin, unpin, download, evict.
struct FilesRequest {
  std::vector<NodeId> nodes;  // missing: none

  bool operator==(const FilesRequest&) const = default;
};

// Something that was deleted in the mount, so that nobody can look its number up any more.
struct DeletedName {
  NodeId folder;
  std::string name;

  bool operator==(const DeletedName&) const = default;
};

// changes, retry, discard: of which items. With neither field it is about everything.
struct ChangesRequest {
  std::optional<std::vector<NodeId>> nodes;
  std::optional<std::vector<DeletedName>> deleted;

  bool namesNothing() const { return !nodes && !deleted; }
  bool operator==(const ChangesRequest&) const = default;
};

struct FlushRequest {
  ChangesRequest about;
  // To be answered when nothing waits any more. Missing: at once.
  bool wait = false;
  // The most that `wait` waits; 0 or missing: as long as it takes.
  milliseconds timeout{0};

  bool operator==(const FlushRequest&) const = default;
};

// How a mount is left that programs may use.
enum class Leaving {
  ifUnused,  // not at all as long as one does
  lazily,    // from its place at once; whoever has something open goes on with it
  byForce,   // at once; whoever has something open gets errors
};

struct UnmountRequest {
  // Missing, or a word that nobody knows: ifUnused.
  Leaving how = Leaving::ifUnused;

  bool operator==(const UnmountRequest&) const = default;
};

void to_json(nlohmann::json& json, const FilesRequest& request);
void from_json(const nlohmann::json& json, FilesRequest& request);
void to_json(nlohmann::json& json, const DeletedName& name);
void from_json(const nlohmann::json& json, DeletedName& name);
void to_json(nlohmann::json& json, const ChangesRequest& request);
void from_json(const nlohmann::json& json, ChangesRequest& request);
void to_json(nlohmann::json& json, const FlushRequest& request);
void from_json(const nlohmann::json& json, FlushRequest& request);
void to_json(nlohmann::json& json, const UnmountRequest& request);
void from_json(const nlohmann::json& json, UnmountRequest& request);

}  // namespace tulo::control
