#include "service/mount/Interrupts.h"

#include <cerrno>

#include "service/mount/Handlers.h"

namespace tulo {

namespace {

// libfuse keeps one pointer for each request that may be interrupted.
static_assert(sizeof(void*) >= sizeof(Contents::Ticket));
static_assert(sizeof(void*) >= sizeof(Verdicts::Ticket));

void* asPointer(std::uint64_t ticket) {
  return reinterpret_cast<void*>(static_cast<std::uintptr_t>(ticket));
}

std::uint64_t asTicket(void* pointer) {
  return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(pointer));
}

}  // namespace

Interrupts::Interrupts(const MountParts& parts)
    : contents_(parts.contents), awaited_(parts.awaited), queue_(1) {}

void Interrupts::armOpen(fuse_req_t request, Contents::Ticket ticket) {
  fuse_req_interrupt_func(request, openInterrupted, asPointer(ticket));
}

void Interrupts::armVerdict(fuse_req_t request, Verdicts::Ticket ticket) {
  fuse_req_interrupt_func(request, verdictInterrupted, asPointer(ticket));
}

void Interrupts::openInterrupted(fuse_req_t request, void* ticket) {
  Interrupts& self = Handlers::of(request).interrupts;
  self.queue_.async([&self, number = asTicket(ticket)] { self.contents_.cancel(number); });
}

void Interrupts::verdictInterrupted(fuse_req_t request, void* ticket) {
  Interrupts& self = Handlers::of(request).interrupts;
  self.queue_.async(
      [&self, number = asTicket(ticket)] { self.awaited_->verdicts().cancel(number, EINTR); });
}

void Interrupts::stop() {
  queue_.stop();
}

}  // namespace tulo
