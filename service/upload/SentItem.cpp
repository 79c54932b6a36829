#include "service/upload/SentItem.h"

#include <charconv>
#include <memory>
#include <optional>
#include <utility>

namespace tulo {

namespace {

std::optional<std::int64_t> numberIn(const std::string& text) {
  std::int64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end) return std::nullopt;
  return number;
}

class SentItem final : public platform::NSFileProviderItem {
 public:
  SentItem(const Node& node, std::string parent) : node_(node), parent_(std::move(parent)) {}

  platform::NSFileProviderItemIdentifier itemIdentifier() const override {
    return node_.identifier;
  }
  platform::NSFileProviderItemIdentifier parentItemIdentifier() const override { return parent_; }
  std::string filename() const override { return node_.filename; }
  std::optional<platform::UTType> contentType() const override {
    if (node_.kind == NodeKind::folder) return platform::UTType::folder();
    const std::size_t dot = node_.filename.rfind('.');
    const std::string extension =
        dot == std::string::npos ? std::string() : node_.filename.substr(dot + 1);
    return platform::UTType::dataTypeWithFilenameExtension(extension).value_or(
        platform::UTType::data());
  }
  platform::NSFileProviderItemCapabilities capabilities() const override {
    return node_.capabilities;
  }
  std::optional<std::int64_t> documentSize() const override {
    if (node_.kind == NodeKind::folder) return std::nullopt;
    return node_.size;
  }
  std::optional<platform::Date> contentModificationDate() const override {
    return platform::Date(node_.modified.whole);
  }
  platform::NSFileProviderItemVersion itemVersion() const override {
    return {node_.contentVersion, node_.metadataVersion};
  }

 private:
  const Node node_;
  const std::string parent_;
};

}  // namespace

platform::ItemPointer itemOf(const Node& node, const std::string& parentIdentifier) {
  return std::make_shared<SentItem>(node, parentIdentifier);
}

bool isAsSent(const Plan& plan, const platform::NSFileProviderItem& item, std::int64_t size) {
  if (item.documentSize() != size) return false;
  // There is only one that is empty.
  if (size == 0) return true;
  const auto now = numberIn(item.itemVersion().contentVersion);
  if (plan.kind == Plan::Kind::create) return now && *now <= 1;
  const auto before = numberIn(plan.change.base().version);
  return now && before && *now == *before + 1;
}

bool isPlaceholder(const Node& sent, const platform::NSFileProviderItem& item) {
  const bool folder = item.contentType() == platform::UTType::folder();
  if (sent.kind == NodeKind::file) return folder;
  return !folder || item.filename() != sent.filename;
}

}  // namespace tulo
