#include "service/edits/FirstWrite.h"

#include <cerrno>

#include "service/base/FaultPoints.h"
#include "service/errors/ContentError.h"
#include "service/replica/ContentRows.h"
#include "service/replica/Journal.h"
#include "service/replica/NodeContents.h"

namespace tulo {

namespace {

Node existing(ReplicaWriter& writer, NodeId id) {
  std::optional<Node> node = writer.node(id);
  if (!node) throw ContentError(ESTALE, "the file is gone");
  return *std::move(node);
}

}  // namespace

FirstWrite::FirstWrite(const FileParts& parts, NodeId node, bool keepContents)
    : parts_(parts),
      node_(node),
      keepContents_(keepContents),
      room_(keepContents ? Room::ordinary : Room::fromReserve) {}

void FirstWrite::reserve() {
  parts_.replica.write(
      Durability::eventual, [this](ReplicaWriter& writer) { reserve(writer); }, room_);
  faultPoint("write.reserved");
}

void FirstWrite::reserve(ReplicaWriter& writer) {
  const Node node = existing(writer, node_);
  if (keepContents_ && node.state == ContentState::dataless && node.size > 0) {
    throw ContentError(EIO, "the contents to be changed are not here");
  }
  name_ = node.name;
  const std::optional<Change> change = journal::find(writer, node_);
  const bool sending =
      change && change->request.isOpen() && change->request.contents() == node.content;
  wasDurable_ =
      node.state == ContentState::downloaded && contentRows::isDurable(writer, node.content);
  content_ = node.content;
  if (node.content != kNoContent && !sending) return;
  copied_ = keepContents_ ? node.content : kNoContent;
  content_ = contentRows::reserve(writer, node_);
  incoming_.emplace(parts_.store, content_);
}

FileDescriptor FirstWrite::openContents() {
  // What the node has is never made anew: it may be all that there is of the file.
  if (!incoming_) {
    FileDescriptor file = parts_.store.openWritable(content_);
    parts_.store.setName(content_, name_);
    return file;
  }
  return copied_ != kNoContent ? parts_.store.duplicate(copied_, content_, name_)
                               : parts_.store.create(content_, name_);
}

void FirstWrite::note() {
  // Were the row lost in a power cut, the changed bytes would pass for the host's.
  const Durability durability = wasDurable_ ? Durability::durable : Durability::eventual;
  const WallTime due = parts_.quiet.due();
  parts_.replica.write(
      durability, [this, due](ReplicaWriter& writer) { note(writer, due); }, room_);
}

void FirstWrite::note(ReplicaWriter& writer, WallTime due) {
  const Node node = existing(writer, node_);
  nodeContents::beginChange(writer, node_, content_);
  writer.setError(node_, "");
  const std::optional<Change> known = journal::find(writer, node_);
  // Deleted here. What is out of the tree because the host has it elsewhere comes back, or ends
  // among the recovered files.
  if (node.parent == kNoNode && (node.identifier.empty() || (known && known->isDeleted()))) return;
  // A file that the host does not know and that has no change stays here.
  if (node.identifier.empty() && !known) return;
  Change change = journal::begin(writer, node, due);
  // Of what was only renamed or moved so far the contents have followed the host's.
  if (!change.hasContents()) change.hostHas({change.base().place, node.contentVersion});
  change.contentsChanged();
  journal::put(writer, change);
}

bool FirstWrite::isDone(ReplicaReader& reader, const Node& node) {
  if (node.state != ContentState::dirty || contentRows::isDurable(reader, node.content))
    return false;
  const std::optional<Change> change = journal::find(reader, node.id);
  if (!change) return node.identifier.empty();
  return change->hasContents() && !change->isDeleted() && change->standing.attempts() == 0 &&
         change->phase() == Change::Phase::waiting;
}

}  // namespace tulo
