// The folders that the kernel knows, and how far each is up to date.
//
// This is the only part of the tree in memory: a few words for each folder that somebody looked
// at, none for files.
//
// Threads: every member may be called on any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "platform/linux/Mutex.h"
#include "service/replica/Node.h"

namespace tulo {

class Folders {
 public:
  // The kernel was given a reference to the folder, or took some back.
  void remembered(NodeId folder, std::uint64_t references = 1);
  void forgotten(NodeId node, std::uint64_t references);

  // Somebody looked into the folder.
  void used(NodeId folder);

  // The generation that the folder is known to be up to since this process started; nothing when
  // it has not been looked at.
  std::optional<std::uint64_t> verified(NodeId folder) const;
  // Keeps the highest generation that was ever set.
  void setVerified(NodeId folder, std::uint64_t generation);
  void dropVerified(NodeId folder);
  // It left the tree. Whether it is watched is kept: it may come back.
  void remove(NodeId folder);
  // Whether the kernel holds references to it.
  bool isKnown(NodeId folder) const;
  // The folder has another number from now on, under which the kernel does not know it yet.
  void renumbered(NodeId folder, NodeId fresh);

  // The folders that are kept up to date although the kernel may not know them.
  void setWatched(const std::vector<NodeId>& folders);
  // One more of them.
  void watch(NodeId folder);

  // The folders known to the kernel or watched that are older than the generation, most recently
  // used first.
  std::vector<NodeId> olderThan(std::uint64_t generation) const;
  // Every folder with the generation that it was verified for.
  std::vector<std::pair<NodeId, std::uint64_t>> allVerified() const;
  // References that the kernel holds on folders.
  std::uint64_t references() const;
  std::size_t size() const;

 private:
  struct State {
    std::uint64_t references = 0;
    std::uint64_t verified = 0;
    std::uint64_t lastUse = 0;
    bool watched = false;
  };

  // A leaf: nothing is called with it held.
  mutable Mutex mutex_;
  std::unordered_map<NodeId, State> states_ TULO_GUARDED_BY(mutex_);
  std::uint64_t clock_ TULO_GUARDED_BY(mutex_) = 0;
};

}  // namespace tulo
