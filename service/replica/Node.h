// The records of the replica.
#pragma once

#include <cstdint>
#include <string>

#include "service/base/Time.h"
#include "service/replica/Ids.h"

namespace tulo {

enum class NodeKind : int {
  folder = 1,
  file = 2,
  link = 3,  // a symbolic link; known here only
};

// Marks permission bits that were set here: they may well be 0.
inline constexpr int kModeSet = 0100000;

enum class ContentState : int {
  dataless = 0,    // only metadata is here
  downloaded = 1,  // the contents of the version that is shown are here
  dirty = 2,       // the contents here are newer than the host's
};

// What the kernel is told of a node, and what decides how it is opened.
struct Entry {
  NodeId id = kNoNode;
  NodeKind kind = NodeKind::file;
  std::int64_t size = 0;
  FileTime modified;
  std::uint64_t capabilities = 0;
  // Local permission bits, with kModeSet; 0: those that follow from the capabilities.
  int mode = 0;
  ContentState state = ContentState::dataless;
  std::int64_t blocks = 0;  // of 512 bytes, that the contents take up here
  ContentId content = kNoContent;
};

// A whole row.
struct Node : Entry {
  NodeId parent = kNoNode;  // kNoNode: the root, or not in the tree at the moment
  std::string name;         // as shown
  std::string filename;     // as the provider has it
  std::string identifier;   // empty while the host has not accepted the node
  std::string contentVersion;
  std::string metadataVersion;
  bool pinned = false;  // asked for by the user, here
  bool kept = false;    // pinned, or in a pinned folder
  WallSeconds lastUsed{};
  std::string error;  // of the last attempt to have it here or there; empty when that went well
  // The change generation of the last listing that this folder was brought up to; 0: never listed.
  std::uint64_t listed = 0;
  std::string digest;  // of that listing
};

}  // namespace tulo
