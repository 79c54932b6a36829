// The steps of one change.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "service/base/FaultPoints.h"
#include "service/base/Names.h"
#include "service/base/ServiceLog.h"
#include "service/edits/StaysLocal.h"
#include "service/replica/ContentRows.h"
#include "service/replica/JournalTree.h"
#include "service/replica/Meta.h"
#include "service/replica/NodeContents.h"
#include "service/upload/UploaderPlan.h"

namespace tulo {

namespace {

using platform::NSFileProviderItemContents;
using platform::NSFileProviderItemFilename;
using platform::NSFileProviderItemParentItemIdentifier;

constexpr milliseconds kPatience{2000};

void dropSentContent(ReplicaWriter& writer, const Change& change, ContentId current) {
  if (change.sentContent == kNoContent || change.sentContent == current) return;
  contentRows::disuse(writer, change.sentContent);
}

bool sameBytes(const std::string& one, const std::string& other) {
  const FileDescriptor first(::open(one.c_str(), O_RDONLY | O_CLOEXEC));
  const FileDescriptor second(::open(other.c_str(), O_RDONLY | O_CLOEXEC));
  if (!first || !second) return false;
  std::vector<char> left(1 << 16);
  std::vector<char> right(1 << 16);
  for (off_t offset = 0;;) {
    const ssize_t a = ::pread(first.get(), left.data(), left.size(), offset);
    const ssize_t b = ::pread(second.get(), right.data(), right.size(), offset);
    if (a < 0 || a != b) return false;
    if (a == 0) return true;
    if (!std::equal(left.begin(), left.begin() + a, right.begin())) return false;
    offset += a;
  }
}

std::int64_t fileSize(const std::string& path) {
  struct stat status = {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_size : -1;
}

// What the two are at the host changes hands, and their order with it.
void exchangeIdentities(ReplicaWriter& writer, const Node& node, Change& change, const Node& former,
                        Change& other) {
  writer.clearIdentifier(node.id);
  writer.setIdentifier(former.id, node.identifier);
  other.baseParent.swap(change.baseParent);
  other.baseFilename.swap(change.baseFilename);
  other.baseVersion.swap(change.baseVersion);
  std::swap(other.sequence, change.sequence);
  journal::erase(writer, node.id);
  journal::put(writer, other);
}

platform::NSFileProviderItemFields changedFields(bool creates, const Node& node,
                                                 const Change& change, const std::string& parent) {
  platform::NSFileProviderItemFields fields = 0;
  if (change.contents && node.kind == NodeKind::file) fields |= NSFileProviderItemContents;
  if (creates || node.filename != change.baseFilename) fields |= NSFileProviderItemFilename;
  if (creates || parent != change.baseParent) fields |= NSFileProviderItemParentItemIdentifier;
  return fields;
}

}  // namespace

// An empty file of the host has no contents here; to be sent, it needs some.
void Uploader::giveEmptyContents(ReplicaWriter& writer, Node& node) {
  node.content = contentRows::reserve(writer, node.id);
  parts_.store.create(node.content, node.name);
  contentRows::use(writer, node.content);
  nodeContents::set(writer, node.id, node.content);
}

// A new file in the place of one that was deleted or set aside as a backup is new contents of that
// one: its identity goes over. False when that has to wait for the former one: for its contents, if
// it is a backup, or for the end of what is being done with it.
bool Uploader::takeIdentity(ReplicaWriter& writer, Node& node, Change& change,
                            const std::string& parentIdentifier) {
  if (!mayInherit(node)) return true;
  if (change.baseParent == parentIdentifier && change.baseFilename == node.filename) return true;
  for (Change& other : journal::basedOn(writer, parentIdentifier, node.filename)) {
    const std::optional<Node> former = writer.node(other.node);
    if (!former || former->id == node.id || former->kind != NodeKind::file) continue;
    if (other.sent || isActive(former->id)) return false;
    const bool backup = !other.deleted && parts_.localNames.matches(former->name);
    if (!other.deleted && !backup) continue;
    if (backup && !node.identifier.empty()) continue;
    if (backup && former->state == ContentState::dataless && former->size > 0) return false;
    writer.clearIdentifier(former->id);
    if (node.identifier.empty()) {
      journal::erase(writer, former->id);
      if (other.deleted) {
        writer.detach(former->id, inSeconds(parts_.files.now()));
      } else {
        // The backup lives on here alone.
        nodeContents::markDirtyIfAny(writer, former->id);
        if (former->content != kNoContent) parts_.store.setName(former->content, former->name);
      }
    } else {
      exchangeIdentities(writer, node, change, *former, other);
    }
    if (node.identifier.empty()) {
      change.baseParent = other.baseParent;
      change.baseFilename = other.baseFilename;
      change.baseVersion = other.baseVersion;
    }
    node.identifier = former->identifier;
    writer.setIdentifier(node.id, node.identifier);
    writer.setContentVersion(node.id, change.baseVersion);
    if (node.content == kNoContent) giveEmptyContents(writer, node);
    nodeContents::markDirty(writer, node.id);
    node.contentVersion = change.baseVersion;
    change.contents = true;
    journal::put(writer, change);
    break;
  }
  return true;
}

// Out of the way, but no farther than it has to go: out of a folder that is to be deleted.
Uploader::Plan Uploader::planAside(ReplicaWriter& writer, const Node& node, const Change& change) {
  Plan plan{Plan::Kind::modify, node, change, change.baseParent, NSFileProviderItemFilename};
  plan.node.filename = asideName(node);
  if (!isAsideName(change.baseFilename)) {
    meta::set(writer, asideKey(plan.node.filename), change.baseParent + '\n' + change.baseFilename);
  }
  const std::optional<Node> home = writer.nodeFor(change.baseParent);
  const std::optional<Change> above = home ? journal::find(writer, home->id) : std::nullopt;
  if (above && above->deleted) {
    plan.parentIdentifier = platform::NSFileProviderRootContainerItemIdentifier();
    plan.fields |= NSFileProviderItemParentItemIdentifier;
  }
  return plan;
}

// The plan that a request was made by, as far as what became of it is concerned.
Uploader::Plan Uploader::planOfSent(const Node& node, const Change& change) {
  const bool creates = node.identifier.empty();
  Plan plan{creates ? Plan::Kind::create : Plan::Kind::modify, node, change, change.sentParent,
            change.sentContent != kNoContent ? NSFileProviderItemContents : 0};
  plan.node.filename = change.sentFilename;
  return plan;
}

std::optional<Uploader::Plan> Uploader::planRemoval(ReplicaWriter& writer, const Node& node,
                                                    const Change& change) {
  if (!node.identifier.empty()) {
    return Plan{Plan::Kind::remove, node, change, change.baseParent, 0};
  }
  journal::erase(writer, node.id);
  writer.detach(node.id, inSeconds(parts_.files.now()));
  return std::nullopt;
}

std::optional<Uploader::Plan> Uploader::planChange(ReplicaWriter& writer, Node& node,
                                                   Change& change, NodeId& wanted) {
  if (staysLocal(writer, parts_.localNames, node.parent, node.name)) {
    change.held = true;
    node.identifier.empty() ? journal::erase(writer, node.id) : journal::put(writer, change);
    return std::nullopt;
  }
  const std::optional<Node> parent = writer.node(node.parent);
  if (!parent || parent->identifier.empty()) return std::nullopt;
  const auto there = journal::basedOn(writer, parent->identifier, node.filename);
  for (const Change& other : there) {
    // Somebody was faster.
    if (occupies(other, writer.node(other.node), node, parts_.localNames)) return std::nullopt;
  }
  if (!takeIdentity(writer, node, change, parent->identifier)) {
    for (const Change& other : there) {
      if (!other.deleted && !other.sent && other.node != node.id) wanted = other.node;
    }
    return std::nullopt;
  }
  const bool creates = node.identifier.empty();
  Plan plan{creates ? Plan::Kind::create : Plan::Kind::modify, node, change, parent->identifier,
            changedFields(creates, node, change, parent->identifier)};
  if (plan.fields != 0) return plan;
  journal::erase(writer, node.id);
  return std::nullopt;
}

std::optional<Uploader::Plan> Uploader::makePlan(NodeId id, bool aside) {
  std::optional<Plan> plan;
  NodeId wanted = kNoNode;
  const auto work = [&](ReplicaWriter& writer) {
    std::optional<Change> change = journal::find(writer, id);
    std::optional<Node> node = writer.node(id);
    if (!change) return;
    if (!node) return journal::erase(writer, id);
    // Written to just now.
    if (change->due > parts_.files.now() && !aside) return;
    if (change->sent) {
      plan = planOfSent(*node, *change);
    } else if (change->deleted) {
      plan = planRemoval(writer, *node, *change);
    } else if (aside && !node->identifier.empty()) {
      plan = planAside(writer, *node, *change);
    } else {
      plan = planChange(writer, *node, *change, wanted);
    }
  };
  parts_.files.withSettled(id, Durability::eventual, work);
  faultPoint("push.planned");
  if (wanted != kNoNode && parts_.fetch && parts_.fetch(wanted) != 0) {
    throw std::runtime_error("the contents of a backup are not here");
  }
  return plan;
}

void Uploader::perform(Plan& plan) {
  if (plan.change.sent) return settleDoubt(plan);
  if (plan.kind == Plan::Kind::remove) return performRemoval(plan);
  if (plan.kind == Plan::Kind::modify && !checkBase(plan)) return;
  if (!markSent(plan)) return;
  const Answer answer = send(plan);
  faultPoint("push.answered");
  if (answer.stopped) return;
  if (answer.error || !answer.item) {
    return react(plan, answer.error.value_or(platform::fileProviderError(
                           platform::NSFileProviderErrorCode::cannotSynchronize)));
  }
  acknowledge(plan, answer.item);
  faultPoint("push.acknowledged");
  reached();
}

void Uploader::performRemoval(Plan& plan) {
  const Answer now = lookUp(plan.node.identifier);
  if (now.stopped) return;
  if (now.isGone()) return forget(plan.node.id);
  if (now.error) return react(plan, *now.error);
  const std::string version = now.item->itemVersion().contentVersion;
  const bool movedOn = !plan.change.baseVersion.empty() && version != plan.change.baseVersion;
  if (plan.node.kind == NodeKind::file && movedOn) return keepAtHost(plan);
  if (plan.node.kind == NodeKind::folder) {
    const Answer inside = list(plan.node.identifier);
    if (inside.stopped) return;
    if (inside.error) return react(plan, *inside.error);
    if (!inside.listing.items.empty()) return keepAtHost(plan);
  }
  faultPoint("delete.send");
  const Answer answer = send(plan);
  faultPoint("delete.answered");
  if (answer.stopped) return;
  if (answer.error) return react(plan, *answer.error);
  forget(plan.node.id);
  reached();
}

// False when the change is done with, or for the moment.
bool Uploader::checkBase(Plan& plan) {
  const Answer now = lookUp(plan.node.identifier);
  if (now.stopped) return false;
  if (now.isGone()) {
    itemGone(plan);
    return false;
  }
  if (now.error) {
    react(plan, *now.error);
    return false;
  }
  const std::string version = now.item->itemVersion().contentVersion;
  if (!plan.sendsContents() || plan.change.baseVersion.empty() ||
      version == plan.change.baseVersion || isPlaceholder(plan.node, *now.item)) {
    return true;
  }
  if (fileSize(parts_.store.path(plan.node.content)) == recordOf(*now.item).size) {
    return checkSame(plan, now.item);
  }
  makeConflict(plan, now.item);
  return false;
}

// The host has another version of the same size, which may be this very one: sent before a power
// cut that took the note of it along, or made there as well. False when the change is done with.
bool Uploader::checkSame(Plan& plan, const platform::ItemPointer& item) {
  // From now on the contents here stay as they are.
  if (!markSent(plan)) return false;
  bool failed = false;
  const bool same =
      plan.node.size == 0 || hasContents(plan.node.identifier, plan.change.sentContent, failed);
  if (failed) return false;
  if (!same) {
    makeConflict(plan, item);
    return false;
  }
  plan.parentIdentifier = item->parentItemIdentifier();
  plan.node.filename = item->filename();
  acknowledge(plan, item);
  return false;
}

// Nothing of the request is left to be found out; what the host has of the item is known.
void Uploader::endDoubt(const Plan& plan, const platform::ItemPointer& item) {
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    std::optional<Change> change = journal::find(writer, plan.node.id);
    const std::optional<Node> node = writer.node(plan.node.id);
    if (!change || !node) return;
    dropSentContent(writer, *change, node->content);
    change->sent = false;
    change->sentContent = kNoContent;
    if (item) {
      change->baseParent = item->parentItemIdentifier();
      change->baseFilename = item->filename();
    }
    journal::put(writer, *change);
  });
  faultPoint("doubt.ended");
}

// A host that was not waited for may still be at work. False, and the change put off, until it had
// its time.
bool Uploader::hadTime(const Plan& plan) {
  if (plan.change.attempts > 0) return true;
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    std::optional<Change> change = journal::find(writer, plan.node.id);
    if (!change) return;
    ++change->attempts;
    change->due = parts_.files.now() + kPatience;
    journal::put(writer, *change);
  });
  return false;
}

// Finds out what became of a request that was not answered. Had it no effect, the change waits for
// its turn like any other.
void Uploader::settleDoubt(Plan& plan) {
  bool failed = false;
  if (plan.kind == Plan::Kind::create) {
    const std::optional<platform::ItemPointer> ours = findCreated(plan, failed);
    if (failed) return;
    if (ours) return acknowledge(plan, *ours);
    if (!hadTime(plan)) return;
    return plan.change.deleted ? forget(plan.node.id) : endDoubt(plan, nullptr);
  }
  const Answer now = lookUp(plan.node.identifier);
  if (now.stopped) return;
  // The next attempt meets the same.
  if (now.isGone()) return endDoubt(plan, nullptr);
  if (now.error) return react(plan, *now.error);
  if (plan.sendsContents()) {
    const bool unchanged = now.item->itemVersion().contentVersion == plan.change.baseVersion;
    if (unchanged && !hadTime(plan)) return;
    if (!unchanged && hasContents(plan.node.identifier, plan.change.sentContent, failed)) {
      return acknowledge(plan, now.item);
    }
    if (failed) return;
  }
  endDoubt(plan, now.item);
}

// The item that a create made although its answer was lost: new to this side, of the same kind and
// name, with the contents that were sent.
std::optional<platform::ItemPointer> Uploader::findCreated(const Plan& plan, bool& failed) {
  std::vector<std::string> candidates;
  const Answer inside = list(plan.change.sentParent);
  if (inside.stopped || inside.error) {
    if (inside.error) react(plan, *inside.error);
    failed = true;
    return std::nullopt;
  }
  const bool file = plan.node.kind == NodeKind::file;
  const std::int64_t size =
      file ? fileSize(parts_.store.path(plan.change.sentContent)) : std::int64_t{0};
  for (const ItemRecord& item : inside.listing.items) {
    if (item.kind != plan.node.kind || item.filename != plan.change.sentFilename) continue;
    if (file && item.size != size) continue;
    const bool known = replica_.read(
        [&](ReplicaReader& reader) { return reader.nodeFor(item.identifier).has_value(); });
    if (!known) candidates.push_back(item.identifier);
  }
  for (const std::string& identifier : candidates) {
    if (file && size > 0 && !hasContents(identifier, plan.change.sentContent, failed)) {
      if (failed) return std::nullopt;
      continue;
    }
    const Answer found = lookUp(identifier);
    if (found.item) return found.item;
  }
  return std::nullopt;
}

bool Uploader::hasContents(const std::string& identifier, ContentId content, bool& failed) {
  const Answer fetched = await([&](std::shared_ptr<Call> call) {
    parts_.extension->fetchContents(
        identifier, std::nullopt, {},
        [call](std::optional<platform::URL> url, platform::ItemPointer item,
               std::optional<platform::NSError> error) {
          call->answered(std::move(item), std::move(error), std::move(url));
        });
  });
  if (fetched.isGone()) return false;
  if (fetched.stopped || fetched.error || !fetched.url) {
    failed = true;
    if (fetched.stopped) return false;
    throw std::runtime_error("what the host made of it cannot be seen at the moment");
  }
  const bool same = sameBytes(fetched.url->path(), parts_.store.path(content));
  ::unlink(fetched.url->path().c_str());
  return same;
}

// False when the plan is out of date: something was changed since, and is not to be sent half done.
bool Uploader::markSent(Plan& plan) {
  faultPoint("push.checked");
  bool valid = false;
  parts_.files.withSettled(plan.node.id, Durability::eventual, [&](ReplicaWriter& writer) {
    std::optional<Change> change = journal::find(writer, plan.node.id);
    const std::optional<Node> node = writer.node(plan.node.id);
    if (!change || !node || change->sequence != plan.change.sequence) return;
    if (plan.sendsContents()) {
      const bool beingWritten =
          parts_.openFiles.isOpenForWriting(node->id) && !verdicts_.isAwaited(node->id);
      if (beingWritten || change->due > plan.change.due) return;
      if (node->content != plan.node.content || node->size != plan.node.size) return;
    }
    valid = true;
    dropSentContent(writer, *change, node->content);
    change->sent = true;
    change->sentContent = plan.sendsContents() ? node->content : kNoContent;
    change->sentParent = plan.parentIdentifier;
    change->sentFilename = plan.node.filename;
    journal::put(writer, *change);
    plan.change = *change;
  });
  if (!valid) return false;
  // Without the mark it would be made a second time after a power cut.
  if (plan.kind == Plan::Kind::create) replica_.synchronize();
  faultPoint("push.marked");
  return true;
}

// Another row may have come to have the identifier, from a listing that was faster.
void Uploader::mergeTwin(ReplicaWriter& writer, NodeId node, const std::string& identifier) {
  const std::optional<Node> twin = writer.nodeFor(identifier);
  if (!twin || twin->id == node) return;
  for (Node& child : writer.childNodes(twin->id)) {
    if (writer.childNamed(node, child.name)) continue;
    child.parent = node;
    writer.update(child);
  }
  writer.setIdentifier(twin->id, "");
  writer.detach(twin->id, inSeconds(parts_.files.now()));
  if (twin->parent != kNoNode) {
    parts_.notifier.queue({entryDeleted(twin->parent, twin->id, twin->name)});
  }
}

void Uploader::applyAcknowledgement(ReplicaWriter& writer, const Plan& plan,
                                    const platform::ItemPointer& item, ContentId& clean) {
  std::optional<Change> change = journal::find(writer, plan.node.id);
  const std::optional<Node> node = writer.node(plan.node.id);
  if (!change || !node) return;
  const std::string identifier =
      plan.kind == Plan::Kind::create ? item->itemIdentifier() : node->identifier;
  mergeTwin(writer, node->id, identifier);
  writer.setIdentifier(node->id, identifier);
  parts_.acknowledged.note(identifier);
  const bool placeholder = isPlaceholder(plan.node, *item);
  const platform::NSFileProviderItemVersion version =
      placeholder ? platform::NSFileProviderItemVersion() : item->itemVersion();
  if (plan.sendsContents() || plan.kind == Plan::Kind::create) {
    change->baseVersion = version.contentVersion;
    writer.setVersions(node->id, version.contentVersion, version.metadataVersion);
  }
  if (isAsideName(change->baseFilename) && !isAsideName(plan.node.filename)) {
    meta::remove(writer, asideKey(change->baseFilename));
  }
  change->baseParent = plan.parentIdentifier;
  change->baseFilename = placeholder ? plan.node.filename : item->filename();
  const bool sameContent = node->content == change->sentContent;
  if (plan.sendsContents() && sameContent) {
    change->contents = false;
    if (node->content != kNoContent) {
      contentRows::clearDurable(writer, node->content);
      nodeContents::markDownloaded(writer, node->id);
      clean = node->content;
    }
  }
  dropSentContent(writer, *change, node->content);
  const std::optional<Node> parent = writer.node(node->parent);
  const bool more = change->deleted || change->contents || node->filename != plan.node.filename ||
                    !parent || parent->identifier != plan.parentIdentifier;
  writer.setError(node->id, "");
  change->sent = false;
  change->sentContent = kNoContent;
  change->attempts = 0;
  change->reason.clear();
  if (more) {
    journal::put(writer, *change);
  } else {
    journal::erase(writer, node->id);
  }
}

void Uploader::acknowledge(const Plan& plan, const platform::ItemPointer& item) {
  ContentId clean = kNoContent;
  parts_.files.withSettled(plan.node.id, Durability::eventual, [&](ReplicaWriter& writer) {
    applyAcknowledgement(writer, plan, item, clean);
  });
  if (clean != kNoContent) parts_.files.forgetName(clean);
  parts_.notifier.queue({attributesChanged(plan.node.id)});
}

// The host does not have the item any more, as was wanted.
void Uploader::forget(NodeId id) {
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    if (const std::optional<Node> node = writer.node(id)) {
      parts_.acknowledged.note(node->identifier);
    }
    journal::erase(writer, id);
    writer.setIdentifier(id, "");
    writer.detach(id, inSeconds(parts_.files.now()));
  });
}

// What was to be deleted moved on at the host, so it stays there and is shown again.
void Uploader::keepAtHost(const Plan& plan) {
  NodeId folder = kNoNode;
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    journal::erase(writer, plan.node.id);
    writer.setIdentifier(plan.node.id, "");
    writer.detach(plan.node.id, inSeconds(parts_.files.now()));
    if (const std::optional<Node> parent = writer.nodeFor(plan.change.baseParent)) {
      folder = parent->id;
      writer.setListed(folder, 1, "");
    }
  });
  serviceLog().info("node %d was changed at the host and is not deleted there",
                    {plan.node.id.number()});
  std::lock_guard lock(mutex_);
  ++statistics_.conflicts;
  if (folder != kNoNode) relist_.push_back(folder);
}

// Two versions grew from one: the one here goes on as an item of its own, under its number, so that
// whoever has it open keeps it.
void Uploader::makeConflict(const Plan& plan, const platform::ItemPointer& item) {
  const ItemRecord record = recordOf(*item);
  Invalidations invalidations;
  parts_.files.withSettled(plan.node.id, Durability::eventual, [&](ReplicaWriter& writer) {
    std::optional<Node> node = writer.node(plan.node.id);
    std::optional<Change> change = journal::find(writer, plan.node.id);
    if (!node || !change || change->deleted) return;
    const std::string former = node->name;
    for (unsigned attempt = 1; attempt == 1 || writer.childNamed(node->parent, node->name);
         ++attempt) {
      node->name = conflictedName(former, parts_.machine, inSeconds(parts_.files.now()), attempt);
    }
    node->filename = node->name;
    node->contentVersion.clear();
    writer.update(*node);
    parts_.acknowledged.note(record.identifier);
    writer.setIdentifier(node->id, "");
    parts_.store.setName(node->content, node->name);
    change->baseParent.clear();
    change->baseFilename.clear();
    change->baseVersion.clear();
    dropSentContent(writer, *change, node->content);
    change->sent = false;
    change->sentContent = kNoContent;
    change->attempts = 0;
    change->due = parts_.files.now();
    journal::put(writer, *change);
    const std::optional<Node> home = writer.nodeFor(record.parentIdentifier);
    Node remote;
    remote.parent = home ? home->id : node->parent;
    remote.filename = record.filename;
    remote.name = names::shown(record.filename);
    remote.kind = NodeKind::file;
    remote.identifier = record.identifier;
    remote.contentVersion = record.contentVersion;
    remote.metadataVersion = record.metadataVersion;
    remote.size = record.size;
    remote.modified = {record.modified, {}};
    remote.capabilities = record.capabilities;
    remote.kept = node->kept;
    if (writer.insert(remote) == kNoNode) {
      remote.name = names::marked(record.filename, record.identifier, 0);
      writer.insert(remote);
    }
    invalidations = {entryChanged(node->parent, former), entryChanged(node->parent, node->name),
                     entryChanged(remote.parent, remote.name), dataChanged(node->parent)};
    if (remote.parent != node->parent) invalidations.push_back(dataChanged(remote.parent));
  });
  faultPoint("conflict.made");
  parts_.notifier.queue(std::move(invalidations));
  serviceLog().info("node %d was changed here and at the host; both versions stay",
                    {plan.node.id.number()});
  std::lock_guard lock(mutex_);
  ++statistics_.conflicts;
}

// The host deleted what was changed here. New contents make a new item; without any, the item is
// gone here as well.
void Uploader::itemGone(const Plan& plan) {
  Invalidations invalidations;
  parts_.files.withSettled(plan.node.id, Durability::eventual, [&](ReplicaWriter& writer) {
    const std::optional<Node> node = writer.node(plan.node.id);
    std::optional<Change> change = journal::find(writer, plan.node.id);
    if (!node || !change) return;
    parts_.acknowledged.note(node->identifier);
    writer.setIdentifier(node->id, "");
    bool wanted = change->contents;
    for (const Node& child : writer.childNodes(node->id)) {
      wanted = wanted || journal::anyBelow(writer, child.id);
    }
    if (!wanted || change->deleted) {
      journal::erase(writer, node->id);
      writer.detach(node->id, inSeconds(parts_.files.now()));
      invalidations = {entryDeleted(node->parent, node->id, node->name), dataChanged(node->parent)};
      return;
    }
    change->baseParent.clear();
    change->baseFilename.clear();
    change->baseVersion.clear();
    change->sent = false;
    change->attempts = 0;
    change->due = parts_.files.now();
    journal::put(writer, *change);
  });
  parts_.notifier.queue(std::move(invalidations));
}

// The folder that something is to be put into is gone at the host: it is made again first.
void Uploader::parentGone(const Plan& plan) {
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    const std::optional<Node> parent = writer.nodeFor(plan.parentIdentifier);
    if (std::optional<Change> change = journal::find(writer, plan.node.id)) {
      change->sent = false;
      journal::put(writer, *change);
    }
    if (!parent) return;
    Change change = journal::begin(writer, *parent, parts_.files.now());
    change.baseParent.clear();
    change.baseFilename.clear();
    change.sent = false;
    journal::put(writer, change);
    writer.setIdentifier(parent->id, "");
  });
}

}  // namespace tulo
