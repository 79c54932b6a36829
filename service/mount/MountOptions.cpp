#include "service/mount/MountOptions.h"

namespace tulo {

std::string optionText(const MountOptions& options) {
  // A comma or backslash of the name would end or escape the option.
  std::string name;
  for (char c : options.name)
    name += c == ',' || c == '\\' ? '_' : c;
  std::string text = options.readWrite ? "rw," : "ro,";
  text += "nosuid,nodev,default_permissions,subtype=tulo,fsname=" + name;
  if (options.allowOther) text += ",allow_other";
  return text;
}

}  // namespace tulo
