// What the tests of the contents of files share.
#pragma once

#include <memory>
#include <string>

#include "service/edits/FileParts.h"
#include "service/edits/LocalFiles.h"
#include "tests/service/support/ReplicaSql.h"
#include "tests/service/support/WritingFixture.h"

namespace tulo::test {

class FilesFixture : public WritingFixture {
 protected:
  LocalFiles& files() { return engine->files(); }

  static std::string bytesOf(WritableFile& file) {
    std::string result(100, '\0');
    const ssize_t count = file.read(result.data(), result.size(), 0);
    result.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return result;
  }

  static ssize_t put(WritableFile& file, const std::string& bytes, off_t offset) {
    return file.write(bytes.data(), bytes.size(), offset);
  }

  std::unique_ptr<OpenFile> openForReading(NodeId id) {
    OpenAttempt attempt = engine->contents().openNow(id);
    EXPECT_EQ(attempt.step, OpenStep::open);
    return std::move(attempt.answer.file);
  }

  // The change is on its way: sent, and not answered.
  void markSent(NodeId id) {
    files().withSettled(id, Durability::eventual, [&](ReplicaWriter& writer) {
      Change sent = *journal::find(writer, id);
      sent.request.made(writer.node(id)->content, {});
      journal::put(writer, sent);
    });
  }

  bool isDurable(ContentId content) {
    return engine->replica().read([&](ReplicaReader& reader) {
      return askSql(reader, "SELECT durable FROM content WHERE id=" +
                                std::to_string(content.number())) != 0;
    });
  }

  // No row can be changed until they are mended.
  void breakRows() {
    sql("CREATE TRIGGER broken BEFORE UPDATE ON node BEGIN SELECT RAISE(FAIL, 'broken'); END");
  }
  void mendRows() { sql("DROP TRIGGER broken"); }

  // Those of the engine that is open now.
  FileParts parts() {
    return {engine->replica(), engine->store(), engine->openFiles(),
            QuietTime([this] { return clock; }, kQuiet)};
  }

 private:
  void sql(const std::string& statement) {
    engine->replica().write(Durability::eventual,
                            [&](ReplicaWriter& writer) { runSql(writer, statement); });
  }
};

}  // namespace tulo::test
