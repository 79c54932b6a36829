// An item as the system hands it over: a template for a new item, or an item with its new values.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "platform/FileProvider.h"

namespace tulo::cli {

class GivenItem final : public platform::NSFileProviderItem {
 public:
  GivenItem(std::string identifier, std::string parent, std::string name,
            std::optional<platform::UTType> type)
      : identifier_(std::move(identifier)),
        parent_(std::move(parent)),
        name_(std::move(name)),
        type_(std::move(type)) {}

  std::string itemIdentifier() const override { return identifier_; }
  std::string parentItemIdentifier() const override { return parent_; }
  std::string filename() const override { return name_; }
  std::optional<platform::UTType> contentType() const override { return type_; }

 private:
  std::string identifier_;
  std::string parent_;
  std::string name_;
  std::optional<platform::UTType> type_;
};

}  // namespace tulo::cli
