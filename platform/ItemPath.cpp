#include "platform/ItemPath.h"

#include <cstddef>
#include <string_view>

namespace tulo::platform {

ItemPath itemPath(const std::string& path) {
  if (path.find('\0') != std::string::npos) return {};
  std::string_view rest = path;
  while (rest.ends_with('/'))
    rest.remove_suffix(1);
  const std::size_t slash = rest.rfind('/');
  const std::string_view name = slash == std::string_view::npos ? rest : rest.substr(slash + 1);
  if (name.empty() || name == "." || name == "..") return {};
  if (slash == std::string_view::npos) return {".", std::string(name)};
  return {slash == 0 ? "/" : std::string(rest.substr(0, slash)), std::string(name)};
}

}  // namespace tulo::platform
