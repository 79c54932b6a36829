#include "service/errors/Errno.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <system_error>

#include "service/errors/ContentError.h"
#include "sqlite/Connection.h"
#include "tests/service/support/DescriptorShortage.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

using platform::NSFileProviderErrorCode;

struct Row {
  platform::NSError error;
  int number;
  bool transient;
};

class ErrnoTable : public ::testing::TestWithParam<Row> {};

TEST_P(ErrnoTable, HasThisRow) {
  EXPECT_EQ(errnoFor(GetParam().error), GetParam().number);
  EXPECT_EQ(isTransient(GetParam().error), GetParam().transient);
  const std::string told = isHandoverError(GetParam().error)
                               ? std::strerror(GetParam().number)
                               : std::to_string(GetParam().error.code);
  EXPECT_NE(descriptionOf(GetParam().error).find(told), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    All, ErrnoTable,
    ::testing::Values(
        Row{fileProviderError(NSFileProviderErrorCode::notAuthenticated), EKEYREJECTED, true},
        Row{fileProviderError(NSFileProviderErrorCode::filenameCollision), EEXIST, false},
        Row{fileProviderError(NSFileProviderErrorCode::syncAnchorExpired), ESTALE, true},
        Row{fileProviderError(NSFileProviderErrorCode::insufficientQuota), EDQUOT, true},
        Row{fileProviderError(NSFileProviderErrorCode::serverUnreachable), EHOSTDOWN, true},
        Row{fileProviderError(NSFileProviderErrorCode::noSuchItem), ENOENT, false},
        Row{fileProviderError(NSFileProviderErrorCode::cannotSynchronize), EIO, false},
        Row{platform::cocoaError(platform::NSFileWriteInvalidFileNameError), EINVAL, false},
        Row{platform::cocoaError(platform::NSFileWriteOutOfSpaceError), ENOSPC, true},
        Row{{"NSFileProviderErrorDomain", 640, {}}, EIO, false},
        Row{{"NSCocoaErrorDomain", -1005, {}}, EIO, false},
        Row{handoverError(ENOSPC), ENOSPC, true}, Row{handoverError(EMFILE), EMFILE, true},
        Row{{"SomebodyElsesDomain", 1, {}}, EIO, false}));

TEST(ErrnoTest, TellsAFullDiskFromOtherFailuresOfTheReplica) {
  EXPECT_EQ(errnoFor(sqlite::DatabaseError(SQLITE_FULL, "full")), ENOSPC);
  EXPECT_EQ(errnoFor(sqlite::DatabaseError(SQLITE_CORRUPT, "corrupt")), EIO);
  EXPECT_EQ(errnoFor(ContentError(ENOSPC, "full")), ENOSPC);
  EXPECT_EQ(errnoFor(ContentError(EDQUOT, "quota")), EDQUOT);
  EXPECT_EQ(errnoFor(ContentError(ENOENT, "gone")), EIO);
  EXPECT_EQ(errnoFor(std::runtime_error("anything")), EIO);
}

TEST(ErrnoTest, AShortageOfDescriptorsIsToldAsWhatItIs) {
  EXPECT_EQ(errnoFor(ContentError(EMFILE, "too many")), EMFILE);
  EXPECT_EQ(errnoFor(ContentError(ENFILE, "too many")), ENFILE);
  EXPECT_EQ(errnoFor(std::system_error(EMFILE, std::generic_category())), EMFILE);
  EXPECT_EQ(errnoFor(std::system_error(EAGAIN, std::generic_category())), EIO);
  const TemporaryDirectory directory;
  const std::string path = directory.file("database");
  sqlite::Connection(path, sqlite::Connection::Mode::create).execute("CREATE TABLE t (x)");
  for (int left = 0; left < 2; ++left) {
    const DescriptorShortage shortage(left);
    try {
      sqlite::Connection(path, sqlite::Connection::Mode::queryOnly)
          .integer("SELECT count(*) FROM t");
      EXPECT_GT(left, 0) << "nothing was thrown";
    } catch (const sqlite::DatabaseError& error) {
      EXPECT_EQ(errnoFor(error), EMFILE) << error.what();
    }
  }
}

}  // namespace
}  // namespace tulo::test
