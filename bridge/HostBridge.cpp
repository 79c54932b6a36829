#include "bridge/HostBridge.h"

#include "bridge/HostBridgeError.h"
#include "index/Index.h"
#include "platform/FileManager.h"
#include "platform/UUID.h"

namespace tulo {
namespace {

using platform::JSONObject;
using platform::URL;

constexpr std::string_view stagingDirectoryName = "fp-upload";

JSONObject perform(const JSONObject& request, double timeout) {
  JSONObject reply = HostBridge::roundTrip(request, timeout);
  HostBridge::succeed(reply);
  return reply;
}

// The reply's string under the key; a failure with the message when there is none.
std::string result(const JSONObject& reply, std::string_view key, const char* whenMissing) {
  const auto found = reply.find(key);
  if (found != reply.end()) {
    if (const auto* text = std::get_if<std::string>(&found->second)) return *text;
  }
  throw HostBridgeError::failed(whenMissing);
}

JSONObject itemRequest(const char* op, const std::string& account, const std::string& ulid) {
  return {{"op", op}, {"account", account}, {"ulid", ulid}};
}

void stageInto(JSONObject& request, const std::optional<URL>& contents) {
  if (contents) request["path"] = HostBridge::stage(*contents).path();
}

}  // namespace

URL HostBridge::fetch(const std::string& account, const std::string& ulid, double timeout) {
  const JSONObject reply = perform(itemRequest("fetch", account, ulid), timeout);
  return URL(result(reply, "path", "host app returned no path"));
}

URL HostBridge::thumbnail(const std::string& account, const std::string& ulid, double timeout) {
  const JSONObject reply = perform(itemRequest("thumbnail", account, ulid), timeout);
  return URL(result(reply, "path", "host app returned no thumbnail path"));
}

std::string HostBridge::create(const std::string& account, const std::optional<std::string>& parent,
                               const std::string& name, const std::optional<URL>& contents,
                               double timeout) {
  JSONObject request{{"op", "create"}, {"account", account}, {"name", name}};
  if (parent) request["parent"] = *parent;
  stageInto(request, contents);
  return result(perform(request, timeout), "ulid", "host app returned no item id");
}

void HostBridge::modify(const std::string& account, const std::string& ulid, bool isFolder,
                        const std::optional<URL>& contents, const std::optional<std::string>& name,
                        const std::optional<std::optional<std::string>>& parent, double timeout) {
  JSONObject request = itemRequest("modify", account, ulid);
  request["is_folder"] = isFolder;
  if (name) request["name"] = *name;
  if (parent && *parent) request["parent"] = **parent;
  if (parent && !*parent) request["parent"] = nullptr;
  stageInto(request, contents);
  perform(request, timeout);
}

void HostBridge::deleteItem(const std::string& account, const std::string& ulid, bool isFolder,
                            double timeout) {
  JSONObject request = itemRequest("delete", account, ulid);
  request["is_folder"] = isFolder;
  perform(request, timeout);
}

URL HostBridge::stage(const URL& contents) {
  const auto container = platform::FileManager::containerURL(Index::appGroup());
  if (!container) throw HostBridgeError::unreachable();
  const URL directory = container->appendingPathComponent(stagingDirectoryName);
  platform::FileManager::createDirectory(directory);
  const URL destination = directory.appendingPathComponent(platform::randomUUIDString());
  try {
    platform::FileManager::removeItem(destination);
  } catch (const platform::FileManagerError&) {
    // Nothing is there, as it should be.
  }
  platform::FileManager::copyItem(contents, destination);
  return destination;
}

}  // namespace tulo
