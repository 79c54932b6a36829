// A look at what a scripted extension's account holds, past what the extension says of it.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "service/listing/SourceProbe.h"
#include "tests/service/support/ScriptedExtension.h"

namespace tulo::test {

// Threads: every member may be called on any thread.
class ScriptedProbe final : public SourceProbe {
 public:
  explicit ScriptedProbe(std::shared_ptr<ScriptedExtension> extension)
      : extension_(std::move(extension)) {}

  // It fails with the errno; 0: not any more.
  void setError(int number) { error_ = number; }
  // Before the next questions are answered.
  void whenAsked(std::function<void()> asked) { asked_ = std::move(asked); }
  unsigned questions() const { return questions_; }

  std::int64_t children(const std::string& container) const override {
    look();
    return extension_->countIn(container);
  }
  bool has(const std::string& item) const override {
    look();
    return extension_->find(item).has_value();
  }

 private:
  void look() const {
    ++questions_;
    if (asked_) asked_();
    if (const int number = error_) throw SourceError(number, "the source cannot be read");
  }

  const std::shared_ptr<ScriptedExtension> extension_;
  std::function<void()> asked_;
  std::atomic<int> error_ = 0;
  mutable std::atomic<unsigned> questions_ = 0;
};

}  // namespace tulo::test
