#include "service/Engine.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <ctime>
#include <future>

#include "service/base/ServiceLog.h"
#include "service/replica/Meta.h"
#include "service/replica/Recovery.h"

namespace tulo {

namespace {

constexpr std::chrono::seconds kRhythm{1};

platform::DomainPointer domainFor(const std::string& identifier) {
  return std::make_shared<platform::NSFileProviderDomain>(identifier, identifier);
}

std::string machineName() {
  std::array<char, 256> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "this machine";
}

// A host that starts makes its socket anew.
std::string socketMark(const std::string& path) {
  struct stat status = {};
  if (::stat(path.c_str(), &status) != 0) return {};
  return std::to_string(status.st_ino) + '.' + std::to_string(status.st_ctim.tv_sec) + '.' +
         std::to_string(status.st_ctim.tv_nsec);
}

}  // namespace

Engine::Engine(const EngineOptions& options, const ExtensionFactory& factory)
    : options_(options),
      extension_(factory(domainFor(options.domain))),
      replica_(options.stateDirectory),
      source_(options.source),
      store_(options.stateDirectory, options.source.directory, options.limits),
      policy_(options.noDownloadList),
      pins_(replica_, folders_),
      files_({replica_, store_, openFiles_, QuietTime(options.clock, options.quiet)}),
      edits_({replica_, files_, store_, LocalNames(options.localNames), options.beforeWaiting}) {
  if (!replica_.setAside().empty()) {
    serviceLog().error("the replica was damaged and is kept as %{public}@", {replica_.setAside()});
  }
  addRoot();
  recover();
  sync_ = std::make_unique<Sync>(replica_, extension_, notifier_, folders_, openFiles_, source_,
                                 acknowledged_);
  contents_ = std::make_shared<Contents>(replica_, extension_, *sync_, notifier_, openFiles_,
                                         store_, policy_);
  contents_->start();
  pins_.start();
  files_.start();
  uploader_ = std::make_unique<Uploader>(uploaderParts());
  files_.setOnChange([this] { uploader_->poke(); });
}

void Engine::recover() {
  // Told from the replica's own state, so that a crash in between does not end it half-way.
  const bool isNew = replica_.read(
      [](ReplicaReader& reader) { return meta::integer(reader, "contents_checked") == 0; });
  if (!isNew) return;
  recovered_ = recoverContents(replica_, store_);
  replica_.write(Durability::durable,
                 [](ReplicaWriter& writer) { meta::set(writer, "contents_checked", 1); });
  if (recovered_ == 0) return;
  serviceLog().error("%d files that were not sent are in the folder %{public}@",
                     {recovered_, kRecoveryFolder});
}

UploaderParts Engine::uploaderParts() {
  UploaderParts parts{replica_,
                      extension_,
                      files_,
                      store_,
                      openFiles_,
                      notifier_,
                      acknowledged_,
                      edits_.localNames(),
                      {},
                      [] { return std::string("host"); },
                      machineName(),
                      {}};
  parts.fetch = [this](NodeId node) {
    std::promise<int> done;
    contents_->fetch(node, Contents::Priority::opened,
                     [&done](int error) { done.set_value(error); });
    return done.get_future().get();
  };
  parts.relist = [this](NodeId folder) { sync_->refresh(folder, [](int) {}); };
  if (!options_.source.directory.empty()) {
    parts.host = [socket = options_.source.directory + "/fp.sock"] { return socketMark(socket); };
  }
  return parts;
}

Engine::~Engine() {
  stop();
}

void Engine::addRoot() {
  if (replica_.read([](ReplicaReader& reader) { return reader.entry(kRootNode); })) return;
  Node root;
  root.id = kRootNode;
  root.kind = NodeKind::folder;
  root.identifier = platform::NSFileProviderRootContainerItemIdentifier();
  root.capabilities = platform::NSFileProviderItemCapabilitiesAllowsReading |
                      platform::NSFileProviderItemCapabilitiesAllowsAddingSubItems;
  root.modified = {secondsNow(), {}};
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) { writer.insert(root); });
}

void Engine::start() {
  sync_->start();
  if (options_.readWrite) uploader_->start();
  housekeeper_ = std::thread([this] { housekeep(); });
}

void Engine::stop() {
  {
    std::lock_guard lock(mutex_);
    if (stopping_) return;
    stopping_ = true;
    changed_.notify_all();
  }
  if (housekeeper_.joinable()) housekeeper_.join();
  contents_->stop();
  files_.stop();
  uploader_->stop();
  sync_->stop();
  notifier_.stop();
  try {
    contents_->saveUseStep();
    sync_->saveVerified();
  } catch (const std::exception& error) {
    serviceLog().error("cannot write down the last state: %{public}@", {error.what()});
  }
  extension_->invalidate();
}

void Engine::poke() {
  std::lock_guard lock(mutex_);
  poked_ = true;
  changed_.notify_all();
}

bool Engine::housekeepingStep() {
  bool more = contents_->evictStep();
  more = contents_->keepStep() || more;
  more = contents_->purgeStep() || more;
  more = contents_->durableStep() || more;
  contents_->saveUseStep();
  replica_.checkpointStep();
  replica_.refillReserveStep();
  const std::uint64_t generation = sync_->generation();
  if (generation != savedGeneration_) {
    sync_->saveVerified();
    savedGeneration_ = generation;
  }
  return more;
}

void Engine::housekeep() {
  auto lastSync = std::chrono::steady_clock::now();
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    poked_ = false;
    lock.unlock();
    bool more = false;
    try {
      more = housekeepingStep();
      const auto now = std::chrono::steady_clock::now();
      if (now - lastSync >= kRhythm) {
        replica_.synchronizeCommitted();
        lastSync = now;
      }
    } catch (const std::exception& error) {
      serviceLog().error("housekeeping failed: %{public}@", {error.what()});
    }
    lock.lock();
    // Even with more to do there is a pause, so that this never takes a processor for itself.
    changed_.wait_for(lock, more ? std::chrono::milliseconds(20) : kRhythm,
                      [this] { return stopping_ || poked_; });
  }
}

}  // namespace tulo
