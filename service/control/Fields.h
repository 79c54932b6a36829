// Reading fields of a JSON object that may be missing. Private to the requests and replies.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>

namespace tulo::control {

// Leaves what it is to be read into as it is when the field is missing. Throws json::exception for
// one of another type.
template <typename T>
void getIfThere(const nlohmann::json& from, const char* key, T& to) {
  if (from.contains(key)) from.at(key).get_to(to);
}

template <typename T>
void getIfThere(const nlohmann::json& from, const char* key, std::optional<T>& to) {
  if (from.contains(key)) to = from.at(key).get<T>();
}

// The fields of several structs side by side in one object.
template <typename... Structs>
nlohmann::json joined(const Structs&... structs) {
  nlohmann::json result = nlohmann::json::object();
  (result.update(nlohmann::json(structs)), ...);
  return result;
}

}  // namespace tulo::control
