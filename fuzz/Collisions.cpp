// Names of a folder: what is decided fast is what the slow and plain model decides. The model knows
// ASCII only; names of any bytes have the same promises, but for which ones clash.

#include "index/Collisions.h"
#include "fuzz/Input.h"
#include "tests/support/CollisionsModel.h"

using tulo::Collisions;
using tulo::fuzz::require;
using tulo::test::ModelEntry;

namespace {

struct Folder {
  std::vector<std::string> reserved;
  std::vector<ModelEntry> entries;
};

Folder folderOf(tulo::fuzz::Input input) {
  Folder folder;
  for (int count = input.byte() % 8; count > 0; --count)
    folder.reserved.push_back(input.text());
  while (!input.isEmpty()) {
    std::string ulid = input.text();
    folder.entries.emplace_back(std::move(ulid), input.text());
  }
  return folder;
}

std::vector<std::string> resolved(const Folder& folder) {
  const std::vector<std::string_view> reserved(folder.reserved.begin(), folder.reserved.end());
  std::vector<Collisions::Entry> entries;
  for (const auto& [ulid, name] : folder.entries)
    entries.push_back({ulid, name});
  return Collisions::resolve(reserved, entries);
}

void makeASCII(std::string& text) {
  for (char& c : text)
    c = static_cast<char>(c & 0x7f);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Folder folder = folderOf({data, size});
  const auto names = resolved(folder);
  require(names.size() == folder.entries.size(), "one name for each entry");
  for (std::size_t i = 0; i < names.size(); ++i) {
    const auto& [ulid, name] = folder.entries[i];
    require(names[i] == name || names[i] == Collisions::markedName(name, ulid),
            "a name is kept or marked");
  }
  for (std::string& name : folder.reserved)
    makeASCII(name);
  for (auto& [ulid, name] : folder.entries)
    makeASCII(ulid), makeASCII(name);
  require(resolved(folder) == tulo::test::modelOfResolve(folder.reserved, folder.entries),
          "the model decides alike");
  return 0;
}
