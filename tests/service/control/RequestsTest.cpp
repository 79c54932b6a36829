#include "service/control/Requests.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace tulo::test {
namespace {

using control::ChangesRequest;
using control::DeletedName;
using control::FilesRequest;
using control::FlushRequest;
using control::Leaving;
using control::Operation;
using control::UnmountRequest;
using nlohmann::json;

template <typename Request>
Request throughText(const Request& request) {
  return json::parse(json(request).dump()).get<Request>();
}

const ChangesRequest kNamed{std::vector<NodeId>{NodeId(16), NodeId(17)},
                            std::vector<DeletedName>{{NodeId(1), "gone"}}};

TEST(RequestsTest, EachOperationIsFoundByItsOwnText) {
  for (const char* text : {"status", "pin", "unpin", "download", "evict", "changes", "flush",
                           "retry", "discard", "unmount"}) {
    const auto operation = control::operationNamed(text);
    ASSERT_TRUE(operation) << text;
    EXPECT_STREQ(control::textOf(*operation), text);
  }
}

TEST(RequestsTest, NothingElseIsAnOperation) {
  for (const char* text : {"", "Status", "status ", "unknown"})
    EXPECT_FALSE(control::operationNamed(text)) << text;
}

TEST(RequestsTest, ARequestIsItsFieldsAndWhatIsAsked) {
  EXPECT_EQ(control::requestOf(Operation::status, json::object()).dump(), R"({"op":"status"})");
  EXPECT_EQ(control::requestOf(Operation::pin, FilesRequest{{NodeId(16)}}).dump(),
            R"({"nodes":[16],"op":"pin"})");
  EXPECT_EQ(control::requestOf(Operation::retry, ChangesRequest{}).dump(), R"({"op":"retry"})");
}

TEST(RequestsTest, WhatIsAskedIsEmptyWhereNothingIs) {
  EXPECT_EQ(control::operationText(json::object()), "");
  EXPECT_EQ(control::operationText({{"op", "pin"}}), "pin");
  EXPECT_THROW(control::operationText({{"op", 7}}), json::exception);
  EXPECT_THROW(control::operationText(json::array()), json::exception);
}

TEST(RequestsTest, TheWireTextStaysAsItIs) {
  EXPECT_EQ(json(FilesRequest{{NodeId(1), NodeId(16)}}).dump(), R"({"nodes":[1,16]})");
  EXPECT_EQ(json(kNamed).dump(), R"({"deleted":[{"folder":1,"name":"gone"}],"nodes":[16,17]})");
  EXPECT_EQ(
      json(FlushRequest{kNamed, true, milliseconds(1500)}).dump(),
      R"({"deleted":[{"folder":1,"name":"gone"}],"nodes":[16,17],"timeout":1500,"wait":true})");
  EXPECT_EQ(json(UnmountRequest{}).dump(), "{}");
  EXPECT_EQ(json(UnmountRequest{Leaving::lazily}).dump(), R"({"how":"lazily"})");
  EXPECT_EQ(json(UnmountRequest{Leaving::byForce}).dump(), R"({"how":"byForce"})");
}

TEST(RequestsTest, ARequestComesOutAsItWentIn) {
  const FilesRequest files{{NodeId(16), NodeId(17)}};
  EXPECT_EQ(throughText(files), files);
  EXPECT_EQ(throughText(kNamed), kNamed);
  const FlushRequest flush{kNamed, true, milliseconds(7)};
  EXPECT_EQ(throughText(flush), flush);
  EXPECT_EQ(throughText(ChangesRequest{}), ChangesRequest{});
  for (const Leaving how : {Leaving::ifUnused, Leaving::lazily, Leaving::byForce})
    EXPECT_EQ(throughText(UnmountRequest{how}).how, how);
}

TEST(RequestsTest, MissingFieldsHaveTheirMeaning) {
  EXPECT_TRUE(json::object().get<FilesRequest>().nodes.empty());
  EXPECT_TRUE(json::object().get<ChangesRequest>().namesNothing());
  const auto flush = json::object().get<FlushRequest>();
  EXPECT_FALSE(flush.wait);
  EXPECT_EQ(flush.timeout, milliseconds(0));
}

// Whoever asks for something that this service does not know must not cut anybody off.
TEST(RequestsTest, AnUnknownWayToUnmountIsTheCarefulOne) {
  EXPECT_EQ(json::parse(R"({"how":"gently"})").get<UnmountRequest>().how, Leaving::ifUnused);
}

TEST(RequestsTest, AnEmptyListNamesNothingButIsNotEverything) {
  EXPECT_FALSE(json::parse(R"({"nodes":[]})").get<ChangesRequest>().namesNothing());
  EXPECT_FALSE(json::parse(R"({"deleted":[]})").get<ChangesRequest>().namesNothing());
}

TEST(RequestsTest, FieldsThatNobodyKnowsAreIgnored) {
  const auto request = json::parse(R"({"nodes":[16],"later":{"x":1}})").get<FilesRequest>();
  EXPECT_EQ(request.nodes, std::vector<NodeId>{NodeId(16)});
}

TEST(RequestsTest, AFieldOfAnotherTypeIsNoRequest) {
  EXPECT_THROW(json::parse(R"({"nodes":"x"})").get<FilesRequest>(), json::exception);
  EXPECT_THROW(json::parse(R"({"nodes":["a"]})").get<ChangesRequest>(), json::exception);
  EXPECT_THROW(json::parse(R"({"deleted":[{"folder":1}]})").get<ChangesRequest>(), json::exception);
  EXPECT_THROW(json::parse(R"({"timeout":"soon"})").get<FlushRequest>(), json::exception);
  EXPECT_THROW(json::parse(R"({"wait":1})").get<FlushRequest>(), json::exception);
}

}  // namespace
}  // namespace tulo::test
