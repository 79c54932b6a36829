#include "service/mount/DirectoryRequests.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "tests/service/support/MountFixture.h"

namespace tulo::test {
namespace {

struct Listed {
  std::string name;
  std::uint64_t number = 0;
  std::uint64_t cookie = 0;
  std::uint32_t type = 0;
  std::uint64_t remembered = 0;  // the node that the kernel keeps; only with attributes
  std::uint64_t size = 0;
};

class DirectoryRequestsTest : public MountFixture {
 protected:
  KernelReply piece(NodeId folder, std::uint64_t offset, std::uint32_t size, bool plus) {
    fuse_read_in arguments = {};
    arguments.offset = offset;
    arguments.size = size;
    return kernel().ask(plus ? FUSE_READDIRPLUS : FUSE_READDIR, folder, bytesOf(arguments));
  }

  static std::vector<Listed> entriesIn(const KernelReply& reply, bool plus) {
    std::vector<Listed> result;
    const std::size_t before = plus ? sizeof(fuse_entry_out) : 0;
    for (std::size_t at = 0; at < reply.body.size();) {
      fuse_entry_out attributes = {};
      if (plus) std::memcpy(&attributes, reply.body.data() + at, sizeof attributes);
      fuse_dirent entry = {};
      std::memcpy(&entry, reply.body.data() + at + before, FUSE_NAME_OFFSET);
      result.push_back({reply.body.substr(at + before + FUSE_NAME_OFFSET, entry.namelen), entry.ino,
                        entry.off, entry.type, attributes.nodeid, attributes.attr.size});
      at += FUSE_REC_ALIGN(before + FUSE_NAME_OFFSET + entry.namelen);
    }
    return result;
  }

  // The whole folder, in pieces of the size.
  std::vector<Listed> listing(NodeId folder, bool plus, std::uint32_t size = 4096) {
    std::vector<Listed> all;
    std::uint64_t offset = 0;
    for (;;) {
      const std::vector<Listed> part = entriesIn(piece(folder, offset, size, plus), plus);
      if (part.empty()) return all;
      all.insert(all.end(), part.begin(), part.end());
      offset = part.back().cookie;
    }
  }

  static std::vector<std::string> namesOf(const std::vector<Listed>& entries) {
    std::vector<std::string> result;
    for (const Listed& entry : entries)
      result.push_back(entry.name);
    return result;
  }
};

TEST_F(DirectoryRequestsTest, AFolderBeginsWithItselfAndWhatItIsIn) {
  extension->file("f", "a", "123");
  list();
  const std::vector<Listed> all = listing(kRootNode, false);
  EXPECT_EQ(namesOf(all), (std::vector<std::string>{".", "..", "a"}));
  EXPECT_EQ(all[0].number, kRootNode.number());
  EXPECT_EQ(all[2].number, idOf("f").number());
  EXPECT_EQ(all[0].type, static_cast<std::uint32_t>(S_IFDIR >> 12));
  EXPECT_EQ(all[2].type, static_cast<std::uint32_t>(S_IFREG >> 12));
}

TEST_F(DirectoryRequestsTest, PiecesOfAnySizeGiveEveryNameOnce) {
  for (int i = 0; i < 30; ++i)
    extension->file("f" + std::to_string(i), "name" + std::to_string(i), "");
  list();
  const std::vector<std::string> whole = namesOf(listing(kRootNode, false, 1 << 16));
  EXPECT_EQ(whole.size(), 32U);
  EXPECT_EQ(namesOf(listing(kRootNode, false, 40)), whole);
  EXPECT_EQ(namesOf(listing(kRootNode, false, 100)), whole);
  EXPECT_EQ(namesOf(listing(kRootNode, true, 200)), whole);
}

TEST_F(DirectoryRequestsTest, WithAttributesTheKernelRemembersTheEntriesButNotTheDots) {
  extension->file("f", "a", "123");
  extension->folder("d", "b");
  list();
  const std::uint64_t before = engine->folders().references();
  const std::vector<Listed> all = entriesIn(piece(kRootNode, 0, 4096, true), true);
  // Folders have the lower numbers, and so come first.
  ASSERT_EQ(namesOf(all), (std::vector<std::string>{".", "..", "b", "a"}));
  EXPECT_EQ(all[0].remembered, 0U);
  EXPECT_EQ(all[1].remembered, 0U);
  EXPECT_EQ(all[2].remembered, idOf("d").number());
  EXPECT_EQ(all[3].remembered, idOf("f").number());
  EXPECT_EQ(all[3].size, 3U);
  EXPECT_EQ(engine->folders().references(), before + 1);
}

TEST_F(DirectoryRequestsTest, WithoutAttributesNoFolderIsRemembered) {
  extension->folder("d", "b");
  list();
  const std::uint64_t before = engine->folders().references();
  piece(kRootNode, 0, 4096, false);
  EXPECT_EQ(engine->folders().references(), before);
}

TEST_F(DirectoryRequestsTest, AFolderThatMayHaveChangedIsListedAtTheHostFirst) {
  extension->file("f", "new", "");
  commit();
  EXPECT_EQ(namesOf(listing(kRootNode, false)), (std::vector<std::string>{".", "..", "new"}));
}

TEST_F(DirectoryRequestsTest, WithoutAHostAFolderIsShownAsItWas) {
  extension->file("f", "old", "");
  extension->folder("d", "unknown");
  list();
  commit();
  extension->setListingError(unreachable());
  EXPECT_EQ(namesOf(listing(kRootNode, false)),
            (std::vector<std::string>{".", "..", "unknown", "old"}));
  EXPECT_EQ(piece(idOf("d"), 0, 4096, false).error, EHOSTDOWN);
}

TEST_F(DirectoryRequestsTest, WhatIsGoneCannotBeListed) {
  EXPECT_EQ(piece(NodeId(999'999), 0, 4096, false).error, ESTALE);
}

TEST_F(DirectoryRequestsTest, WhoeverWantsToKnowHearsOfEachListingOnce) {
  std::vector<NodeId> heard;
  listed = [&](NodeId folder) { heard.push_back(folder); };
  extension->file("f", "a", "");
  list();
  listing(kRootNode, false, 40);
  EXPECT_EQ(heard, std::vector<NodeId>{kRootNode});
}

}  // namespace
}  // namespace tulo::test
