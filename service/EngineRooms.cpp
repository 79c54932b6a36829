#include "service/EngineRooms.h"

#include <unistd.h>

#include <array>
#include <future>

#include "service/base/ContainerFiles.h"
#include "service/base/FileMark.h"

namespace tulo {

namespace {

platform::DomainPointer domainFor(const std::string& identifier) {
  return std::make_shared<platform::NSFileProviderDomain>(identifier, identifier);
}

std::string machineName() {
  std::array<char, 256> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "this machine";
}

UploaderParts uploaderParts(EngineRooms& rooms, const EngineOptions& options) {
  UploaderParts result{rooms.storage.replica(),
                       rooms.extension,
                       rooms.files,
                       rooms.storage.store(),
                       rooms.openFiles,
                       rooms.notifier,
                       rooms.acknowledged,
                       rooms.edits.localNames(),
                       {},
                       [] { return std::string("host"); },
                       [] { return HostActivity::idle; },
                       machineName(),
                       options.source.directory,
                       {}};
  result.belief = Belief(options.probe);
  result.fetch = [&rooms](NodeId node) {
    std::promise<int> done;
    rooms.contents->fetch(node, Contents::Priority::opened,
                          [&done](int error) { done.set_value(error); });
    return done.get_future().get();
  };
  result.list = [&rooms](NodeId folder) {
    std::promise<int> done;
    rooms.sync.refresh(folder, [&done](int error) { done.set_value(error); });
    return done.get_future().get();
  };
  result.relist = [&rooms](NodeId folder) { rooms.sync.refresh(folder, [](int) {}); };
  if (!options.source.directory.empty()) {
    const std::string socket = container::hostSocket(options.source.directory);
    // A host that starts makes its socket anew. Another account's host is none for what was kept
    // here.
    result.host = [socket, same = options.sameAccount] {
      return same() ? changeMark(socket) : std::string();
    };
    result.activity = [socket] { return activityOfHost(socket); };
  }
  return result;
}

}  // namespace

EngineRooms::EngineRooms(const EngineOptions& options, const ExtensionFactory& factory)
    : extension(factory(domainFor(options.domain))),
      storage(options.stateDirectory, options.source.directory, options.limits),
      source(options.source),
      policy(options.noDownloadList),
      sync(storage.replica(), extension, notifier, folders, openFiles, storage.store(), source,
           acknowledged, Belief(options.probe)),
      contents(std::make_shared<Contents>(storage.replica(), extension, sync, notifier, openFiles,
                                          storage.store(), policy)),
      pins(storage.replica(), folders),
      files({storage.replica(), storage.store(), openFiles,
             QuietTime(options.clock, options.quiet, options.wallClock)}),
      edits({storage.replica(), files, storage.store(), LocalNames(options.localNames),
             options.beforeWaiting}) {
  contents->start();
  pins.start();
  files.start();
  uploader = std::make_unique<Uploader>(uploaderParts(*this, options));
  files.setOnChange([this] { uploader->poke(); });
}

}  // namespace tulo
