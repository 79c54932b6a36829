// The files of downloaded contents, beside the replica's database.
//
// Each version of a node's contents is a file of its own. What came from the provider is never
// changed; what was changed here is written in place (openWritable), by LocalFiles alone.
//
// Threads: every member may be called on any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/FileDescriptor.h"
#include "service/replica/CacheRoom.h"
#include "service/replica/HandOver.h"
#include "service/replica/IncomingContent.h"

namespace tulo {

class ContentStore {
 public:
  // Creates the directory. `shared` is the directory that the provider's side writes to. Throws
  // ContentError.
  ContentStore(const std::string& directory, const std::string& shared, CacheLimits limits);

  std::string path(ContentId content) const;

  // Takes over the file: what was handed over is moved where that is possible, else copied (cloned
  // where the disk can) and removed; what lies elsewhere is copied and stays. Only a regular file
  // of exactly `size` bytes is taken; anything else throws ContentError and leaves the file alone.
  // Returns its blocks.
  std::int64_t take(const std::string& source, std::int64_t size, ContentId content);

  // What the provider's side hands over, and may be done with it.
  const HandOver& handOver() const { return handOver_; }

  // An open file of contents, for reading. Throws ContentError when it is not there or is short.
  FileDescriptor open(ContentId content, std::int64_t size) const;
  // The same whatever size it has.
  FileDescriptor openAsIs(ContentId content) const;
  void remove(ContentId content) const;
  // Forces the file to the disk. An errno, or 0.
  int force(ContentId content) const;
  // Forces all of them; returns those that are safe now.
  std::vector<ContentId> makeDurable(const std::vector<ContentId>& contents) const;

  // Contents that grow here. The file carries its name in the tree, so that it can be recovered
  // without the database. All throw ContentError.
  FileDescriptor create(ContentId content, const std::string& name) const;
  FileDescriptor openWritable(ContentId content) const;
  FileDescriptor duplicate(ContentId from, ContentId to, const std::string& name) const;
  void setName(ContentId content, const std::string& name) const;
  // From now on the contents can be had from the host again.
  void forgetName(ContentId content) const;

  // The name that a file of contents carries; nothing when it carries none.
  static std::optional<std::string> nameOf(const std::string& path);

  // Whether more may come.
  CacheRoom& room() { return room_; }
  const CacheRoom& room() const { return room_; }
  // What no node has yet, but is not left over.
  IncomingContents& incoming() { return incoming_; }
  const std::string& directory() const { return directory_; }

 private:
  std::string directory_;
  HandOver handOver_;
  CacheRoom room_;
  IncomingContents incoming_;
};

}  // namespace tulo
