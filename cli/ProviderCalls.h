// The protocol calls behind `tulo provider`: each makes one call of an extension and prints what it
// calls back, one JSON object a line.
//
// Each returns the exit status: 0 for success, 1 when an error was reported to the caller.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/JSONLines.h"
#include "extension/FileProviderExtension.h"
#include "platform/FileProvider.h"

namespace tulo::cli {

struct NewItem {
  std::string name;
  std::string parent;                    // an identifier
  std::optional<platform::UTType> type;  // absent: the template has none
  std::optional<platform::URL> contents;
};

struct Change {
  std::string identifier;
  std::optional<platform::NSFileProviderItemFields> fields;  // absent: what is given below
  std::optional<std::string> name;
  std::optional<std::string> parent;  // an identifier
  std::optional<platform::URL> contents;
};

struct ThumbnailBatch {
  std::vector<std::string> identifiers;
  platform::Size size;
  std::optional<std::uint64_t> cancelAfter;  // counted from 1
};

class ProviderCalls {
 public:
  ProviderCalls(std::shared_ptr<FileProviderExtension> extension, JSONLines& output)
      : extension_(std::move(extension)), output_(output) {}

  int info();
  int item(const std::string& identifier);
  int enumerate(const std::string& identifier);
  int anchor(const std::string& identifier);
  int changes(const std::string& identifier, const std::string& anchor);
  int fetch(const std::string& identifier);
  int create(const NewItem& newItem);
  int modify(const Change& change);
  int deleteItem(const std::string& identifier);
  int thumbnails(const ThumbnailBatch& batch);

 private:
  std::shared_ptr<FileProviderExtension> extension_;
  JSONLines& output_;
};

}  // namespace tulo::cli
