// The files of downloaded contents, beside the replica's database.
//
// Each version of a node's contents is a file of its own. What came from the provider is never
// changed; what was changed here is written in place (openWritable), by LocalFiles alone. How much
// they take up is counted in blocks, as the disk does.
//
// Threads: every member may be called on any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_set>
#include <vector>

#include "platform/linux/FileDescriptor.h"
#include "service/errors/ContentError.h"
#include "service/replica/Node.h"

namespace tulo {

struct CacheLimits {
  std::int64_t size = 10LL << 30;         // bytes that contents may take up
  double keepFreeFraction = 0.05;         // of the disk, that stays free
  std::int64_t keepFreeBytes = 64 << 20;  // and at least so much
};

class ContentStore {
 public:
  // Creates the directory. `shared` is the directory that the provider's side writes to. Throws
  // ContentError.
  ContentStore(const std::string& directory, const std::string& shared, CacheLimits limits);

  std::string path(ContentId content) const;

  // Takes over the file: it is moved where that is possible, else copied (cloned where the disk
  // can) and removed. Only a regular file of exactly `size` bytes is taken; anything else throws
  // ContentError and leaves the file alone. Returns its blocks.
  std::int64_t take(const std::string& source, std::int64_t size, ContentId content);

  // Removes a file that was handed over and not taken, if it lies in the shared directory. A path
  // that a confused provider named may be anybody's, so elsewhere nothing is ever removed.
  void discard(const std::string& source) const;

  // An open file of contents, for reading. Throws ContentError when it is not there or is short.
  FileDescriptor open(ContentId content, std::int64_t size) const;
  // The same whatever size it has.
  FileDescriptor openAsIs(ContentId content) const;
  void remove(ContentId content) const;
  // Forces the file to the disk. False when it is not there.
  bool makeDurable(ContentId content) const;
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

  struct Named {
    std::string path;
    std::string name;
  };
  // Every file of contents that carries a name. Throws ContentError.
  std::vector<Named> named() const;
  // The highest number that a file of contents has; 0 without any. Throws ContentError.
  ContentId highestNumber() const;

  // Bytes to be freed before `wanted` more may come; 0 when they fit.
  std::int64_t shortage(std::int64_t wanted) const;
  // The same, counting the disk's own free space only.
  std::int64_t diskShortage(std::int64_t wanted) const;

  void setUsed(std::int64_t bytes) { used_ = bytes; }
  void addUsed(std::int64_t bytes) { used_ += bytes; }
  std::int64_t used() const { return used_; }
  // Bytes of downloads under way.
  void reserve(std::int64_t bytes) { reserved_ += bytes; }
  std::int64_t reserved() const { return reserved_; }
  const CacheLimits& limits() const { return limits_; }

  // Whether an IncomingContent has the contents.
  bool isIncoming(ContentId content) const;

 private:
  friend class IncomingContent;

  std::string directory_;
  std::string shared_;
  CacheLimits limits_;
  std::atomic<std::int64_t> used_ = 0;
  std::atomic<std::int64_t> reserved_ = 0;
  // Guards the numbers; a leaf.
  mutable std::mutex incomingMutex_;
  std::unordered_set<ContentId> incoming_;
};

// Contents on their way: reserved, and no node's yet. While this lives, they are not taken for
// left-overs. To be made in the transaction that reserves the number, and to be let go of after
// the one that gives the contents to their node.
class IncomingContent {
 public:
  IncomingContent(ContentStore& store, ContentId content);
  ~IncomingContent();
  IncomingContent(const IncomingContent&) = delete;
  IncomingContent& operator=(const IncomingContent&) = delete;

  ContentId number() const { return content_; }

 private:
  ContentStore& store_;
  const ContentId content_;
};

}  // namespace tulo
