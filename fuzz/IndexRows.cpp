// Rows of any types in the host's index, read through a real database. Nothing may be lost or
// crash, and a lookup gives a file what the listing gives it.

#include "fuzz/Input.h"
#include "index/Index.h"
#include "platform/linux/LogSink.h"
#include "tests/support/Container.h"
#include "tests/support/IndexBuilder.h"

using tulo::Index;
using tulo::IndexEntry;
using tulo::fuzz::Input;
using tulo::fuzz::require;
using tulo::test::Blob;
using tulo::test::Value;

namespace {

// One database for all inputs; each begins with empty tables.
struct Database {
  Database() {
    tulo::platform::setLogSink([](const auto&) {});
    builder.execute("PRAGMA journal_mode = OFF");
  }

  tulo::test::Container container;
  tulo::test::IndexBuilder builder{container.file("state.db")};
};

Value valueOf(Input& input) {
  switch (input.byte() % 5) {
    case 0:
      return nullptr;
    case 1:
      return input.integer();
    case 2:
      return static_cast<double>(input.integer()) / 1024;
    case 3:
      return Blob{input.text()};
    default:
      return input.text();
  }
}

std::vector<Value> valuesOf(Input& input, int count) {
  std::vector<Value> values;
  for (; count > 0; --count)
    values.push_back(valueOf(input));
  return values;
}

void fill(tulo::test::IndexBuilder& index, Input input) {
  index.execute("BEGIN; DELETE FROM folders; DELETE FROM items");
  while (!input.isEmpty()) {
    if (input.byte() % 4 == 0) {
      index.folderOf(valuesOf(input, 3));
    } else {
      index.fileOf(valuesOf(input, 7));
    }
  }
  index.execute("COMMIT");
}

// Where no two rows of the table have the ULID, the row that is found is the one that was listed.
void checkLookups(const Index& index, const std::vector<IndexEntry>& children) {
  for (const IndexEntry& child : children) {
    require(child.isFolder || child.name.empty() || !child.displayName.empty(),
            "a name that was there is still there");
    const auto found =
        child.isFolder ? index.entryForFolder(child.ulid) : index.entryForFile(child.ulid);
    if (!found) continue;  // its stored key is no text
    require(found->ulid == child.ulid, "a lookup finds the row of its key");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Database database;
  fill(database.builder, {data, size});
  const auto index = Index::open(Index::appGroup(), "state.db");
  require(index != nullptr, "the index opens");
  const auto top = index->childrenOfFolder(std::nullopt);
  checkLookups(*index, top);
  for (const IndexEntry& child : top)
    if (child.isFolder) checkLookups(*index, index->childrenOfFolder(child.ulid));
  return 0;
}
