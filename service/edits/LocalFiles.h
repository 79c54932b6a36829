// The contents of files that are open, or were changed here.
//
// Threads: every member may be called on any thread.
// Errors: an errno, 0 when all went well, unless a function says otherwise.
#pragma once

#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "service/edits/FileParts.h"
#include "service/edits/RowKeeper.h"
#include "service/edits/WritableFile.h"
#include "service/edits/WritableFiles.h"

namespace tulo {

// The contents of a node, or why there are none.
struct OpenedFile {
  std::shared_ptr<WritableFile> file;
  int error = 0;
};

class LocalFiles {
 public:
  explicit LocalFiles(const FileParts& parts);

  // After a restart: sizes and times of dirty contents are what their files say. Throws
  // DatabaseError.
  void start();
  // Brings every row up to date and ends the thread that does so in the background.
  void stop() { keeper_.stop(); }

  // The shared contents of a node whose contents are here.
  OpenedFile open(NodeId node);
  // The same for contents that are made just now, inside the transaction that makes the node and
  // journals them: only so can nobody have sent them yet. Open until released().
  void openNew(NodeId node, ContentId content, FileDescriptor contents);
  // The same if somebody has it open already; else null.
  std::shared_ptr<WritableFile> find(NodeId node) const { return files_.find(node); }
  // Nobody has it open any more.
  void released(NodeId node) { files_.released(node); }

  // A handle that could write was flushed or closed: brings the row up to date; the quiet time
  // begins.
  int settle(NodeId node);
  // Settles soon, so that closing a file need not wait for its row.
  void settleLater(NodeId node) { keeper_.settleLater(node); }
  // What was written to the node, and the journal, survive a power cut.
  int synchronize(NodeId node, bool dataOnly);
  // Kept until the host reports other contents.
  int setModified(NodeId node, const timespec& modified);
  // Does what was put off.
  void catchUp() { keeper_.catchUp(); }
  // Notes the name that unsent contents are recovered under, soon.
  void nameLater(ContentId content, std::string name) {
    keeper_.nameLater(content, std::move(name));
  }
  // The contents are the host's.
  void forgetName(ContentId content) { keeper_.forgetName(content); }

  // Whether somebody has the file open for writing and may not be through with what is written. A
  // program may keep a file open all day; what was left alone for a while goes up meanwhile.
  bool isBeingWritten(NodeId node) const;

  // Changes size and times of an entry to what a program sees that has written since.
  void overlay(Entry& entry) const;

  // Runs `function` in a transaction in which the contents of the node cannot change. Throws what
  // that throws, and DatabaseError.
  void withSettled(NodeId node, Durability durability, const Replica::WriteFunction& function);

  // Waits are measured by the one, people are shown the other.
  WallTime now() const { return parts_.quiet.now(); }
  WallTime wallNow() const { return parts_.quiet.wallNow(); }
  milliseconds quiet() const { return parts_.quiet.length(); }
  const QuietTime& quietTime() const { return parts_.quiet; }
  // Called when a change was journaled. Set before anything is changed.
  void setOnChange(std::function<void()> onChange) { onChange_ = std::move(onChange); }
  void changed() const {
    if (onChange_) onChange_();
  }

 private:
  OpenedFile tryOpen(NodeId node);
  int forceContents(NodeId node, bool dataOnly);

  const FileParts parts_;
  std::function<void()> onChange_;
  WritableFiles files_;
  RowKeeper keeper_;
};

}  // namespace tulo
