#include "platform/UUID.h"

#include <uuid/uuid.h>

#include <array>

namespace tulo::platform {

std::string randomUUIDString() {
  uuid_t bytes;
  uuid_generate_random(bytes);
  std::array<char, UUID_STR_LEN> text{};
  uuid_unparse_upper(bytes, text.data());
  return text.data();
}

}  // namespace tulo::platform
