#include "service/control/StatusReply.h"

#include "service/control/Fields.h"

namespace tulo::control {

using nlohmann::json;

void to_json(json& to, const Transfer& transfer) {
  to = {{"path", transfer.path},
        {"size", transfer.size},
        {"since", transfer.since.time_since_epoch().count()},
        {"ahead", transfer.ahead},
        {"active", transfer.active}};
}

void from_json(const json& from, Transfer& transfer) {
  from.at("path").get_to(transfer.path);
  getIfThere(from, "size", transfer.size);
  transfer.since = WallSeconds(seconds(from.value("since", seconds::rep{0})));
  getIfThere(from, "ahead", transfer.ahead);
  getIfThere(from, "active", transfer.active);
}

void to_json(json& to, const ListingStatus& listing) {
  to = {{"indexPresent", listing.indexPresent}, {"lastListingError", listing.lastError},
        {"generation", listing.generation},     {"anchor", listing.anchor},
        {"listings", listing.listings},         {"unchangedListings", listing.unchanged},
        {"staleFolders", listing.staleFolders}};
}

void from_json(const json& from, ListingStatus& listing) {
  getIfThere(from, "indexPresent", listing.indexPresent);
  getIfThere(from, "lastListingError", listing.lastError);
  getIfThere(from, "generation", listing.generation);
  getIfThere(from, "anchor", listing.anchor);
  getIfThere(from, "listings", listing.listings);
  getIfThere(from, "unchangedListings", listing.unchanged);
  getIfThere(from, "staleFolders", listing.staleFolders);
}

void to_json(json& to, const CacheStatus& cache) {
  to = {{"used", cache.used}, {"limit", cache.limit}, {"incoming", cache.incoming}};
}

void from_json(const json& from, CacheStatus& cache) {
  getIfThere(from, "used", cache.used);
  getIfThere(from, "limit", cache.limit);
  getIfThere(from, "incoming", cache.incoming);
}

void to_json(json& to, const DownloadStatus& downloads) {
  to = {{"fetched", downloads.fetched},
        {"failedFetches", downloads.failed},
        {"deniedDownloads", downloads.denied},
        {"evicted", downloads.evicted},
        {"transfers", downloads.transfers}};
}

void from_json(const json& from, DownloadStatus& downloads) {
  getIfThere(from, "fetched", downloads.fetched);
  getIfThere(from, "failedFetches", downloads.failed);
  getIfThere(from, "deniedDownloads", downloads.denied);
  getIfThere(from, "evicted", downloads.evicted);
  getIfThere(from, "transfers", downloads.transfers);
}

void to_json(json& to, const UploadStatus& uploads) {
  to = joined(uploads.host, uploads.counts);
  to["uploading"] = uploads.uploading;
  to["sent"] = uploads.sent;
  to["failedUploads"] = uploads.failed;
  to["conflicts"] = uploads.conflicts;
  to["lastUploadError"] = uploads.lastError;
  to["localItems"] = uploads.localItems;
  to["local"] = uploads.local;
  to["uploads"] = uploads.uploads;
  to["changes"] = uploads.changes;
}

void from_json(const json& from, UploadStatus& uploads) {
  from.get_to(uploads.host);
  from.get_to(uploads.counts);
  getIfThere(from, "uploading", uploads.uploading);
  getIfThere(from, "sent", uploads.sent);
  getIfThere(from, "failedUploads", uploads.failed);
  getIfThere(from, "conflicts", uploads.conflicts);
  getIfThere(from, "lastUploadError", uploads.lastError);
  getIfThere(from, "localItems", uploads.localItems);
  getIfThere(from, "local", uploads.local);
  getIfThere(from, "uploads", uploads.uploads);
  getIfThere(from, "changes", uploads.changes);
}

void to_json(json& to, const KeptAccount& kept) {
  to = {{"container", kept.container}, {"changes", kept.changes}, {"files", kept.files}};
}

void from_json(const json& from, KeptAccount& kept) {
  getIfThere(from, "container", kept.container);
  getIfThere(from, "changes", kept.changes);
  getIfThere(from, "files", kept.files);
}

void to_json(json& to, const StatusReply& reply) {
  to = joined(reply.outcome, reply.listing, reply.downloads, reply.uploads);
  to["domain"] = reply.domain;
  to["mountPoint"] = reply.mountPoint;
  to["process"] = reply.process;
  to["readWrite"] = reply.readWrite;
  to["openFiles"] = reply.openFiles;
  to["kernelFolders"] = reply.kernelFolders;
  to["cache"] = reply.cache;
  to["errors"] = reply.errors;
  if (!reply.kept.empty()) to["kept"] = reply.kept;
}

void from_json(const json& from, StatusReply& reply) {
  from.get_to(reply.outcome);
  from.get_to(reply.listing);
  from.get_to(reply.downloads);
  from.get_to(reply.uploads);
  getIfThere(from, "domain", reply.domain);
  getIfThere(from, "mountPoint", reply.mountPoint);
  getIfThere(from, "process", reply.process);
  getIfThere(from, "readWrite", reply.readWrite);
  getIfThere(from, "openFiles", reply.openFiles);
  getIfThere(from, "kernelFolders", reply.kernelFolders);
  getIfThere(from, "cache", reply.cache);
  getIfThere(from, "errors", reply.errors);
  getIfThere(from, "kept", reply.kept);
}

}  // namespace tulo::control
