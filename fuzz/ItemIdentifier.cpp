// Identifiers that a system may ask for: what parses is put together again unchanged.
#include "fuzz/Input.h"
#include "index/ItemID.h"

using tulo::ItemID;
using tulo::fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view identifier = tulo::fuzz::Input(data, size).rest();
  const auto parsed = ItemID::parse(identifier);
  if (!parsed) return 0;
  const std::string again =
      parsed->isFolder ? ItemID::folder(parsed->ulid) : ItemID::file(parsed->ulid);
  require(again == identifier, "an identifier that parses is put together again");
  require(ItemID::parse(again) == parsed, "it parses alike again");
  return 0;
}
