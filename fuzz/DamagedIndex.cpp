// An index file in which any bytes were overwritten. Whatever SQLite makes of it: no crash, and no
// row that is no row.
#include <filesystem>

#include "fuzz/Input.h"
#include "index/Index.h"
#include "platform/linux/LogSink.h"
#include "tests/support/Container.h"
#include "tests/support/IndexBuilder.h"

using tulo::Index;
using tulo::fuzz::Input;
using tulo::fuzz::require;

namespace {

struct Files {
  Files() {
    tulo::platform::setLogSink([](const auto&) {});
    tulo::test::IndexBuilder builder(container.file("sound.db"));
    builder.execute("PRAGMA page_size = 512").execute("VACUUM");
    for (int i = 0; i < 20; ++i)
      builder.folder(tulo::test::ulidOf(i), "folder")
          .file({.ulid = tulo::test::ulidOf(i), .name = "file " + std::to_string(i % 5)});
  }

  tulo::test::Container container;
};

void overwrite(const std::string& path, Input input) {
  const auto size = std::filesystem::file_size(path);
  while (!input.isEmpty()) {
    const std::size_t offset = (std::size_t{input.byte()} << 8 | input.byte()) % size;
    std::string bytes = input.text();
    tulo::test::damage(path, offset, bytes.substr(0, size - offset));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Files files;
  const std::string path = files.container.file("state.db");
  std::filesystem::copy_file(files.container.file("sound.db"), path,
                             std::filesystem::copy_options::overwrite_existing);
  overwrite(path, {data, size});
  const auto index = Index::open(Index::appGroup(), "state.db");
  if (!index) return 0;
  for (const auto& child : index->childrenOfFolder(std::nullopt)) {
    if (!child.isFolder) index->entryForFile(child.ulid);
  }
  index->entryForFolder(tulo::test::ulidOf(3));
  index->dataVersion();
  return 0;
}
