// An engine behind the handlers of a mount, and a kernel that a test plays.
#pragma once

#include <unistd.h>

#include <memory>

#include "service/mount/Handlers.h"
#include "tests/service/support/Kernel.h"
#include "tests/service/support/WritingFixture.h"

namespace tulo::test {

class MountFixture : public WritingFixture {
 protected:
  MountFixture() {
    // So that everything is known of the folder.
    list();
  }

  ~MountFixture() override {
    extension->releaseFetches();
    if (handlers_) handlers_->stop();
    // A thread of the engine may still be in an answer that the kernel has already.
    engine->stop();
    unmount();
  }

  // Each mounts at once; the last one counts.
  void mountWritable() { mount(writableParts()); }
  void mountReadOnly() { mount(readOnlyParts()); }
  // Programs wait for the host's word.
  void mountWaiting(std::chrono::milliseconds longest = std::chrono::minutes(10)) {
    MountParts parts = writableParts();
    parts.awaited = &engine->uploader();
    parts.patience = longest;
    mount(parts);
  }

  void mount(const MountParts& parts) {
    unmount();
    handlers_ = std::make_unique<Handlers>(parts, ::getuid(), ::getgid());
    kernel_ = std::make_unique<Kernel>(*handlers_);
  }

  void unmount() {
    if (!handlers_) return;
    extension->releaseFetches();
    handlers_->stop();
    kernel_.reset();
    handlers_.reset();
  }

  MountParts readOnlyParts() {
    return {engine->replica(),
            engine->sync(),
            engine->contents(),
            engine->openFiles(),
            engine->folders(),
            engine->notifier(),
            options.domain,
            listed,
            nullptr,
            nullptr};
  }

  MountParts writableParts() {
    MountParts parts = readOnlyParts();
    parts.edits = &engine->edits();
    parts.files = &engine->files();
    return parts;
  }

  // There is no host to be asked.
  static platform::NSError unreachable() {
    return platform::fileProviderError(platform::NSFileProviderErrorCode::serverUnreachable);
  }

  Kernel& kernel() {
    if (!kernel_) mountWritable();
    return *kernel_;
  }
  Handlers& handlers() { return *handlers_; }

  // What a mount is told of folders that somebody lists; to be set before it is made.
  std::function<void(NodeId)> listed;

 private:
  std::unique_ptr<Handlers> handlers_;
  std::unique_ptr<Kernel> kernel_;
};

}  // namespace tulo::test
