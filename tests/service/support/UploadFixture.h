// What goes wrong on the way to the host, and listings that are overtaken by it.
#pragma once

#include "tests/service/support/WritingFixture.h"

namespace tulo::test {

class UploadFixture : public WritingFixture {
 protected:
  // The next request fails; `done`: the host does it all the same.
  void failOnce(const platform::NSError& error, bool done = false) {
    extension->scriptMutation({.error = error, .done = done});
  }

  // What is due goes up between the reading of a listing and its arrival. The host has news
  // besides: a listing without any is not looked at.
  void listDuringPush() {
    extension->file("i:news", "news.txt", "news");
    extension->afterNextListing([this] { push(); });
    list();
  }

  // Runs the function in a transaction and returns what it does.
  template <typename Function>
  auto inTransaction(const Function& function) {
    decltype(function(std::declval<ReplicaWriter&>())) result{};
    engine->replica().write(Durability::eventual,
                            [&](ReplicaWriter& writer) { result = function(writer); });
    return result;
  }
};

}  // namespace tulo::test
