#include "cli/ProtocolValues.h"

namespace tulo::cli {
namespace {

JSON dateValue(const std::optional<platform::Date>& date) {
  if (!date) return nullptr;
  return date->time_since_epoch().count();
}

JSON sizeValue(const std::optional<std::int64_t>& size) {
  if (!size) return nullptr;
  return *size;
}

JSON typeValue(const std::optional<platform::UTType>& type) {
  if (!type) return nullptr;
  return type->identifier();
}

JSON userInfoValue(const platform::NSError& error) {
  if (!error.userInfo) return nullptr;
  JSON object = JSON::object();
  for (const auto& [key, value] : *error.userInfo)
    object[key] = value;
  return object;
}

}  // namespace

JSON itemValue(const platform::ItemPointer& item) {
  if (!item) return nullptr;
  const auto version = item->itemVersion();
  return {
      {"itemIdentifier", item->itemIdentifier()},
      {"parentItemIdentifier", item->parentItemIdentifier()},
      {"filename", item->filename()},
      {"contentType", typeValue(item->contentType())},
      {"capabilities", item->capabilities()},
      {"documentSize", sizeValue(item->documentSize())},
      {"contentModificationDate", dateValue(item->contentModificationDate())},
      {"isUploaded", item->isUploaded()},
      {"isDownloaded", item->isDownloaded()},
      {"itemVersion",
       {{"contentVersion", version.contentVersion}, {"metadataVersion", version.metadataVersion}}}};
}

JSON errorValue(const std::optional<platform::NSError>& error) {
  if (!error) return nullptr;
  return {{"domain", error->domain}, {"code", error->code}, {"userInfo", userInfoValue(*error)}};
}

JSON progressValue(const platform::Progress& progress) {
  return {{"progress",
           {{"completed", progress.completedUnitCount()}, {"total", progress.totalUnitCount()}}}};
}

}  // namespace tulo::cli
