// The probe of an account whose provider reads it from the host's index.
//
// It reads as the provider does: a connection of its own for each question, read-only, the same
// columns of the same tables, locked out for three seconds at most. So it fails where that would.
// Every descriptor of the index is SQLite's, which keeps it open as long as another connection of
// this process needs the locks on the file.
//
// A host that is set up again fills an index of its own before it serves, and until then it lacks
// what is not written yet. So another file in place of the known one counts as one that cannot be
// read until another host serves, or it has lain there for a while.
//
// Threads and errors: as every probe.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "platform/linux/Mutex.h"
#include "service/listing/SourceProbe.h"

namespace tulo {

namespace sqlite {
class Connection;
}

class IndexProbe final : public SourceProbe {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds kPatience{5000};

  // `socket`: that of the host.
  IndexProbe(std::string path, std::string socket, std::chrono::milliseconds patience = kPatience)
      : path_(std::move(path)), socket_(std::move(socket)), patience_(patience) {}

  std::int64_t children(const std::string& container) const override;
  bool has(const std::string& item) const override;

 private:
  std::int64_t ask(const std::function<std::int64_t(sqlite::Connection&)>& question) const;
  // Why SQLite could not open the index: the errno.
  int whyClosed() const;
  // Throws while the index is a new one that is perhaps not complete.
  void expectServed() const TULO_EXCLUDES(mutex_);
  bool isServed(const std::string& index, const std::string& host) const TULO_REQUIRES(mutex_);

  const std::string path_;
  const std::string socket_;
  const std::chrono::milliseconds patience_;

  // A leaf.
  mutable Mutex mutex_;
  // The file that is known to be complete, and the host that served it last.
  mutable std::string index_ TULO_GUARDED_BY(mutex_);
  mutable std::string host_ TULO_GUARDED_BY(mutex_);
  mutable std::string newIndex_ TULO_GUARDED_BY(mutex_);
  mutable Clock::time_point newSince_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
