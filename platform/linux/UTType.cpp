#include "platform/UTType.h"

#include <gio/gio.h>

#include <map>
#include <memory>

#include "platform/Text.h"
#include "platform/UTF8.h"
#include "platform/linux/ContentTypes.h"
#include "platform/linux/Mutex.h"

namespace tulo::platform {

namespace {

// No system knows a longer extension than a file name can carry.
constexpr std::size_t longestExtension = 255;

// Names come from other people's files, so what is remembered needs a bound.
constexpr std::size_t rememberedExtensions = 10000;

struct FreeWithGLib {
  void operator()(char* text) const noexcept { g_free(text); }
};

// A slash would begin a new file name, a NUL would end it.
bool canBeExtension(std::string_view extension) {
  return !extension.empty() && extension.size() <= longestExtension &&
         extension.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos &&
         utf8::isValid(extension);
}

std::optional<UTType> lookedUp(const std::string& extension) {
  if (const auto known = typeIdentifierForExtension(extension)) return UTType(std::string(*known));
  // With a name only, the answer is by the extension alone; what several types claim comes with
  // the database's own preference first.
  const std::string name = "file." + extension;
  const std::unique_ptr<char, FreeWithGLib> type(
      g_content_type_guess(name.c_str(), nullptr, 0, nullptr));
  if (!type) return std::nullopt;
  const auto identifier = typeIdentifierForMIMEType(type.get());
  if (!identifier) return std::nullopt;
  return UTType(std::string(*identifier));
}

class Memory {
 public:
  const std::optional<UTType>* find(const std::string& extension) const {
    const SharedLock lock(mutex_);
    const auto found = types_.find(extension);
    // Entries are neither changed nor removed, so the reference outlasts the lock.
    return found == types_.end() ? nullptr : &found->second;
  }

  void remember(const std::string& extension, const std::optional<UTType>& type) {
    const ExclusiveLock lock(mutex_);
    if (types_.size() < rememberedExtensions) types_.emplace(extension, type);
  }

 private:
  mutable SharedMutex mutex_;
  std::map<std::string, std::optional<UTType>> types_ TULO_GUARDED_BY(mutex_);
};

Memory& memory() {
  static Memory& instance = *new Memory;
  return instance;
}

}  // namespace

std::optional<UTType> UTType::dataTypeWithFilenameExtension(std::string_view extension) {
  if (!canBeExtension(extension)) return std::nullopt;
  const std::string folded = text::lowercased(extension);
  if (const auto* known = memory().find(folded)) return *known;
  std::optional<UTType> type = lookedUp(folded);
  memory().remember(folded, type);
  return type;
}

}  // namespace tulo::platform
