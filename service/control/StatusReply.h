// What `tulo status` is told of one account, as both ends of the control socket see it.
//
// On the wire the fields of all the structs but Transfer and CacheStatus stand side by side in one
// object. One that is missing leaves what stands here.
//
// Threads: plain values.
// Errors: from_json throws json::exception for a field of another type than it must have.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "service/base/Time.h"
#include "service/control/PendingChange.h"
#include "service/control/Replies.h"

namespace tulo::control {

// A file that is fetched, or waits for its turn.
struct Transfer {
  std::string path;
  std::int64_t size = 0;
  WallSeconds since{};  // when it was asked for
  bool ahead = false;   // nobody waits for it
  bool active = false;

  bool operator==(const Transfer&) const = default;
};

struct ListingStatus {
  bool indexPresent = false;
  std::string lastError;  // empty: the last listing went well
  std::uint64_t generation = 0;
  std::string anchor;
  std::uint64_t listings = 0;
  std::uint64_t unchanged = 0;
  std::size_t staleFolders = 0;

  bool operator==(const ListingStatus&) const = default;
};

// In bytes.
struct CacheStatus {
  std::int64_t used = 0;
  std::int64_t limit = 0;
  std::int64_t incoming = 0;

  bool operator==(const CacheStatus&) const = default;
};

// Since the service started, and what is under way.
struct DownloadStatus {
  std::uint64_t fetched = 0;
  std::uint64_t failed = 0;
  std::uint64_t denied = 0;
  std::uint64_t evicted = 0;
  std::vector<Transfer> transfers;

  bool operator==(const DownloadStatus&) const = default;
};

// Since the service started, and what is left.
struct UploadStatus {
  HostState host;
  ChangeCounts counts;
  std::size_t uploading = 0;
  std::uint64_t sent = 0;
  std::uint64_t failed = 0;
  std::uint64_t conflicts = 0;
  std::string lastError;
  // How many items stay on this machine, and the paths of some.
  std::int64_t localItems = 0;
  std::vector<std::string> local;
  // Those that are sent just now, and some of all.
  std::vector<PendingChange> uploads;
  std::vector<PendingChange> changes;

  bool operator==(const UploadStatus&) const = default;
};

// Unsent changes of another account that was mounted under the same name before.
struct KeptAccount {
  std::string container;
  std::int64_t changes = 0;
  std::string files;  // a folder with the changed files

  bool operator==(const KeptAccount&) const = default;
};

struct StatusReply {
  Outcome outcome;
  std::string domain;
  std::string mountPoint;
  std::int64_t process = 0;
  bool readWrite = false;
  std::size_t openFiles = 0;
  std::size_t kernelFolders = 0;
  ListingStatus listing;
  CacheStatus cache;
  DownloadStatus downloads;
  UploadStatus uploads;
  // Files whose last download failed for good.
  Failures errors;
  std::vector<KeptAccount> kept;

  bool operator==(const StatusReply&) const = default;
};

void to_json(nlohmann::json& json, const Transfer& transfer);
void from_json(const nlohmann::json& json, Transfer& transfer);
void to_json(nlohmann::json& json, const ListingStatus& listing);
void from_json(const nlohmann::json& json, ListingStatus& listing);
void to_json(nlohmann::json& json, const CacheStatus& cache);
void from_json(const nlohmann::json& json, CacheStatus& cache);
void to_json(nlohmann::json& json, const DownloadStatus& downloads);
void from_json(const nlohmann::json& json, DownloadStatus& downloads);
void to_json(nlohmann::json& json, const UploadStatus& uploads);
void from_json(const nlohmann::json& json, UploadStatus& uploads);
void to_json(nlohmann::json& json, const KeptAccount& kept);
void from_json(const nlohmann::json& json, KeptAccount& kept);
void to_json(nlohmann::json& json, const StatusReply& reply);
void from_json(const nlohmann::json& json, StatusReply& reply);

}  // namespace tulo::control
