#include "host/server/IncomingRequest.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>

#include "host/server/RequestParser.h"
#include "tests/host/server/SocketPair.h"

namespace tulo::host {
namespace {

using State = IncomingRequest::State;

class IncomingRequestTest : public testing::Test {
 protected:
  IncomingRequestTest() { ::fcntl(incoming_.descriptor(), F_SETFL, O_NONBLOCK); }

  void say(std::string_view text) {
    ASSERT_EQ(::send(pair_.ours.get(), text.data(), text.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(text.size()));
  }
  // Sends more than fits into the socket at once.
  State sayAtLength(std::string_view text) {
    State state = State::incomplete;
    while (!text.empty() && state == State::incomplete) {
      say(text.substr(0, 65536));
      text.remove_prefix(std::min<std::size_t>(text.size(), 65536));
      state = incoming_.receive();
    }
    return state;
  }

  test::SocketPair pair_;
  IncomingRequest incoming_{std::move(pair_.theirs), IncomingRequest::Clock::now()};
};

TEST_F(IncomingRequestTest, ComesInPiecesAndEndsAtItsLineFeed) {
  EXPECT_EQ(incoming_.receive(), State::incomplete);
  say("{\"op\":");
  EXPECT_EQ(incoming_.receive(), State::incomplete);
  say("1}\nmore\n");
  EXPECT_EQ(incoming_.receive(), State::whole);
  EXPECT_EQ(incoming_.takeText(), "{\"op\":1}");
}

TEST_F(IncomingRequestTest, MayEndWithTheStream) {
  say("{}");
  ::shutdown(pair_.ours.get(), SHUT_WR);
  EXPECT_EQ(incoming_.receive(), State::whole);
  EXPECT_EQ(incoming_.takeText(), "{}");
}

TEST_F(IncomingRequestTest, APeerThatSaysNothingAndGoesIsOver) {
  pair_.ours.reset();
  EXPECT_EQ(incoming_.receive(), State::over);
}

TEST_F(IncomingRequestTest, TheLongestIsKept) {
  std::string text(maximumRequestSize, 'x');
  EXPECT_EQ(sayAtLength(text + "\n"), State::whole);
  EXPECT_EQ(incoming_.takeText().size(), maximumRequestSize);
}

TEST_F(IncomingRequestTest, OneThatIsTooLongIsReadToItsEndAndBecomesBlanks) {
  EXPECT_EQ(sayAtLength(std::string(3 * maximumRequestSize, 'x') + "\n"), State::whole);
  EXPECT_EQ(incoming_.takeText(), std::string(maximumRequestSize + 1, ' '));
}

TEST_F(IncomingRequestTest, OneWithoutEndIsCutOff) {
  EXPECT_EQ(sayAtLength(std::string(std::size_t{70} << 20, 'x')), State::over);
}

}  // namespace
}  // namespace tulo::host
