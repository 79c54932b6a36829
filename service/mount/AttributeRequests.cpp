#include "service/mount/AttributeRequests.h"

#include <cerrno>
#include <string_view>

#include "service/mount/ItemAttributes.h"
#include "service/mount/MountGuard.h"
#include "service/mount/Replies.h"

namespace tulo {

AttributeRequests::AttributeRequests(const MountParts& parts)
    : replica_(parts.replica), domain_(parts.domain) {}

void AttributeRequests::getxattr(fuse_req_t request, NodeId node, const char* name,
                                 std::size_t room) {
  guarded(request, [&] {
    if (!std::string_view(name).starts_with("user.")) {
      // "Not supported here" is what `ls -l` remembers for the whole mount; "not set" it would
      // ask again for every file.
      fuse_reply_err(request, EOPNOTSUPP);
      return;
    }
    const auto value = replica_.read([&](ReplicaReader& reader) {
      const auto attributes = ItemAttributes::of(reader, node);
      return attributes ? attributes->value(name, domain_) : std::nullopt;
    });
    if (value) {
      replySized(request, *value, room);
    } else {
      fuse_reply_err(request, ENODATA);
    }
  });
}

void AttributeRequests::listxattr(fuse_req_t request, NodeId node, std::size_t room) {
  guarded(request, [&] {
    const auto attributes =
        replica_.read([&](ReplicaReader& reader) { return ItemAttributes::of(reader, node); });
    std::string list;
    if (attributes) {
      for (const std::string& name : attributes->names())
        list += name + '\0';
    }
    replySized(request, list, room);
  });
}

}  // namespace tulo
