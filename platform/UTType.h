// Uniform type identifiers.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tulo::platform {

// A type, known by its identifier ("public.folder", "com.adobe.pdf"). Plain value.
class UTType {
 public:
  explicit UTType(std::string identifier) : identifier_(std::move(identifier)) {}

  static UTType folder() { return UTType("public.folder"); }
  static UTType data() { return UTType("public.data"); }

  // The type that the system knows for files with this extension (without its dot) and that
  // conforms to `data()`; nothing for an empty extension or one that the system does not know.
  // May be called on any thread.
  static std::optional<UTType> dataTypeWithFilenameExtension(std::string_view extension);

  const std::string& identifier() const { return identifier_; }

  bool operator==(const UTType&) const = default;

 private:
  std::string identifier_;
};

}  // namespace tulo::platform
