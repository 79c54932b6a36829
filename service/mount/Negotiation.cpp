#include "service/mount/Negotiation.h"

namespace tulo {

void negotiate(fuse_conn_info& connection, bool writable) {
  const auto want = [&](unsigned capability) {
    if (connection.capable & capability) connection.want |= capability;
  };
  want(FUSE_CAP_READDIRPLUS);
  want(FUSE_CAP_READDIRPLUS_AUTO);
  want(FUSE_CAP_PARALLEL_DIROPS);
  want(FUSE_CAP_CACHE_SYMLINKS);
  want(FUSE_CAP_NO_OPENDIR_SUPPORT);
  want(FUSE_CAP_SPLICE_WRITE);
  want(FUSE_CAP_SPLICE_MOVE);
  // Data changes when Notifier says so, not when some attribute differs. Automatic invalidation
  // would take precedence.
  connection.want &= ~static_cast<unsigned>(FUSE_CAP_AUTO_INVAL_DATA);
  want(FUSE_CAP_EXPLICIT_INVAL_DATA);
  // Truncating is part of opening, so that a file that is about to be replaced is not fetched.
  if (writable) want(FUSE_CAP_ATOMIC_O_TRUNC);
  connection.max_background = 256;
  connection.congestion_threshold = 192;
  connection.max_readahead = 1 << 20;
}

}  // namespace tulo
