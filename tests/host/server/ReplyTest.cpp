#include "host/server/Reply.h"

#include <gtest/gtest.h>

namespace tulo::host {
namespace {

TEST(ReplyTest, IsOneLineWhateverItSays) {
  EXPECT_EQ(successReply(), "{\"ok\":true}\n");
  EXPECT_EQ(pathReply("/a\nb"), "{\"ok\":true,\"path\":\"/a\\nb\"}\n");
  EXPECT_EQ(ulidReply("01X"), "{\"ok\":true,\"ulid\":\"01X\"}\n");
  EXPECT_EQ(failureReply("quota", "full"),
            "{\"error\":\"full\",\"kind\":\"quota\",\"ok\":false}\n");
  EXPECT_EQ(failureReply("", "why"), "{\"error\":\"why\",\"ok\":false}\n");
}

TEST(ReplyTest, ShowsBrokenTextWithReplacementCharacters) {
  EXPECT_EQ(failureReply("io", "\xFF"), "{\"error\":\"\uFFFD\",\"kind\":\"io\",\"ok\":false}\n");
}

TEST(ReplyTest, TheStatusNamesEachAccount) {
  EXPECT_EQ(statusReply({}), "{\"accounts\":[],\"ok\":true}\n");
  EXPECT_EQ(statusReply({{"a", {"/caf\xE9", 1, 2, false}}}),
            "{\"accounts\":[{\"account\":\"a\",\"folders\":1,\"items\":2,"
            "\"root\":\"/caf\uFFFD\",\"signed_in\":false}],\"ok\":true}\n");
}

}  // namespace
}  // namespace tulo::host
