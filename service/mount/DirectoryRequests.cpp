#include "service/mount/DirectoryRequests.h"

#include <cerrno>
#include <string>
#include <vector>

#include "platform/FileProvider.h"
#include "service/mount/MountGuard.h"

namespace tulo {

DirectoryRequests::DirectoryRequests(const MountParts& parts, const EntryReplies& entries)
    : replica_(parts.replica),
      sync_(parts.sync),
      folders_(parts.folders),
      entries_(entries),
      listed_(parts.listed) {}

void DirectoryRequests::readdir(fuse_req_t request, const Piece& piece) {
  guarded(request, [&] {
    folders_.used(piece.folder);
    // Whoever goes on with a listing has what is here: it may change from piece to piece anyway.
    if (piece.offset != 0) return fill(request, piece);
    const auto listed =
        replica_.read([&](ReplicaReader& reader) { return reader.listed(piece.folder); });
    if (!listed) {
      fuse_reply_err(request, ESTALE);
    } else if (sync_.freshness(piece.folder, *listed) == Freshness::current) {
      fill(request, piece);
    } else {
      refreshThenFill(request, piece, *listed != 0);
    }
  });
}

// A folder that is known can be shown as it was, also when there is no host to ask.
void DirectoryRequests::refreshThenFill(fuse_req_t request, const Piece& piece, bool known) {
  sync_.refresh(piece.folder, [this, request, piece, known](int error) {
    if (error != 0 && !known) {
      fuse_reply_err(request, error);
    } else {
      guarded(request, [&] { fill(request, piece); });
    }
  });
}

bool DirectoryRequests::addDots(fuse_req_t request, const Piece& piece,
                                DirectoryBuffer& buffer) const {
  Entry entry;
  entry.kind = NodeKind::folder;
  entry.capabilities = platform::NSFileProviderItemCapabilitiesAllowsWriting;
  entry.id = piece.folder;
  const auto add = [&](const char* name, off_t cookie) {
    return piece.offset >= cookie ||
           buffer.add(request, name, entries_.attributes(entry), nullptr, cookie, piece.plus);
  };
  return add(".", 1) && add("..", 2);
}

std::vector<NodeId> DirectoryRequests::addChildren(fuse_req_t request, const Piece& piece,
                                                   DirectoryBuffer& buffer) {
  const NodeId after = NodeId(piece.offset <= 2 ? kFirstNode.number() - 1
                                                : static_cast<std::uint64_t>(piece.offset));
  std::vector<NodeId> remembered;
  std::string text;
  replica_.read([&](ReplicaReader& reader) {
    reader.children(piece.folder, after, [&](const Entry& entry, std::string_view name) {
      const fuse_entry_param answer =
          piece.plus ? entries_.parameters(entry) : EntryReplies::withTypeOnly(entry);
      const auto cookie = static_cast<off_t>(entry.id.number());
      text.assign(name);
      if (!buffer.add(request, text.c_str(), answer.attr, &answer, cookie, piece.plus)) {
        return false;
      }
      if (piece.plus && entry.kind == NodeKind::folder) remembered.push_back(entry.id);
      return true;
    });
  });
  return remembered;
}

void DirectoryRequests::fill(fuse_req_t request, const Piece& piece) {
  if (piece.offset == 0 && listed_) listed_(piece.folder);
  DirectoryBuffer buffer(piece.size);
  std::vector<NodeId> remembered;
  if (addDots(request, piece, buffer)) remembered = addChildren(request, piece, buffer);
  // Counted first: the kernel may forget them before this thread goes on.
  for (NodeId id : remembered)
    folders_.remembered(id);
  if (fuse_reply_buf(request, buffer.data(), buffer.used()) == 0) return;
  for (NodeId id : remembered)
    folders_.forgotten(id, 1);
}

}  // namespace tulo
