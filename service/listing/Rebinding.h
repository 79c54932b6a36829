// Rows whose items the host has under other identifiers than before.
//
// An account that was set up again gives each of its files a new identifier, and a file that is
// deleted and made again has one as well. What a folder had and what is new in it are taken for the
// same where name and kind agree: pins, numbers and what was not sent yet go on with it. Contents
// that are here stay only if version, size and time agree, too, as far as these tell (Likeness).
// Where they do not, the bytes are compared before anything here is done to those of the host.
//
// Threads: inside the transaction. Errors: what the replica throws.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "service/listing/Listing.h"
#include "service/replica/Change.h"
#include "service/replica/ContentStore.h"
#include "service/replica/ReplicaWriter.h"

namespace tulo {

class Rebinding {
 public:
  // `newer`: identifiers of what is newer here than the listing.
  Rebinding(ReplicaWriter& writer, const Node& folder, const std::unordered_set<std::string>& newer,
            const ContentStore& store)
      : writer_(writer), folder_(folder), newer_(newer), store_(store) {}

  // Gives the rows, and the children, their new identifiers. Returns the folders among them, which
  // are to be listed anew.
  std::vector<NodeId> bind(std::vector<Node>& children, const Listing& listing);

 private:
  struct Candidate {
    Node node;
    std::optional<Change> change;
    Node* child = nullptr;  // where it is one here
  };

  static bool hasNews(const std::vector<Node>& children, const Listing& listing);
  void collect(std::vector<Node>& children, const Listing& listing);
  void addChild(Node& child);
  void addChange(const Change& change);
  // Whether the listing has something else, if anything, in the item's place.
  bool isMissing(const std::string& identifier) const;
  // What is here of the item is to be made of it just now.
  bool isBeingMade(const ItemRecord& item);
  bool fits(const Candidate& candidate, const ItemRecord& item);
  void take(Candidate& candidate, const ItemRecord& item);
  std::string versionOf(const Candidate& candidate, const ItemRecord& item) const;
  void rebase(Change& change, const ItemRecord& item, const std::string& version);

  ReplicaWriter& writer_;
  const Node& folder_;
  const std::unordered_set<std::string>& newer_;
  const ContentStore& store_;
  std::unordered_set<std::string_view> listed_;
  // By their names at the host.
  std::unordered_map<std::string, Candidate> candidates_;
};

}  // namespace tulo
