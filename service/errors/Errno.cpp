#include "service/errors/Errno.h"

#include <cerrno>
#include <system_error>

#include "service/errors/ContentError.h"
#include "sqlite/DatabaseError.h"

namespace tulo {

namespace {

using platform::NSFileProviderErrorCode;

struct Row {
  std::string_view domain;
  std::int64_t code;
  int number;
  bool transient;
  std::string_view words;
};

constexpr std::string_view kHandoverDomain = "TuloHandover";

constexpr std::int64_t raw(NSFileProviderErrorCode code) {
  return static_cast<std::int64_t>(code);
}

constexpr Row kTable[] = {
    {platform::NSFileProviderErrorDomain, raw(NSFileProviderErrorCode::notAuthenticated),
     EKEYREJECTED, true, "not signed in at the host"},
    {platform::NSFileProviderErrorDomain, raw(NSFileProviderErrorCode::filenameCollision), EEXIST,
     false, "the name is taken at the host"},
    {platform::NSFileProviderErrorDomain, raw(NSFileProviderErrorCode::syncAnchorExpired), ESTALE,
     true, "the listing is out of date"},
    {platform::NSFileProviderErrorDomain, raw(NSFileProviderErrorCode::insufficientQuota), EDQUOT,
     true, "the account has no room left"},
    {platform::NSFileProviderErrorDomain, raw(NSFileProviderErrorCode::serverUnreachable),
     EHOSTDOWN, true, "the host cannot be reached"},
    {platform::NSFileProviderErrorDomain, raw(NSFileProviderErrorCode::noSuchItem), ENOENT, false,
     "the host has no such item"},
    {platform::NSFileProviderErrorDomain, raw(NSFileProviderErrorCode::cannotSynchronize), EIO,
     false, "the host cannot synchronise the item"},
    {platform::NSCocoaErrorDomain, platform::NSFileWriteInvalidFileNameError, EINVAL, false,
     "the host does not allow this name"},
    {platform::NSCocoaErrorDomain, platform::NSFileWriteOutOfSpaceError, ENOSPC, true,
     "the host's disk is full"},
};

const Row* rowFor(const platform::NSError& error) {
  for (const Row& row : kTable) {
    if (row.domain == error.domain && row.code == error.code) return &row;
  }
  return nullptr;
}

// What a program can do something about stays what it is.
int shortageOrFailure(int number) {
  return number == ENOSPC || number == EDQUOT || isShortOfDescriptors(number) ? number : EIO;
}

}  // namespace

platform::NSError handoverError(int number) {
  return {std::string(kHandoverDomain), number, {}};
}

bool isHandoverError(const platform::NSError& error) {
  return error.domain == kHandoverDomain;
}

int errnoFor(const platform::NSError& error) {
  if (isHandoverError(error)) return static_cast<int>(error.code);
  const Row* row = rowFor(error);
  return row ? row->number : EIO;
}

int errnoFor(const std::exception& error) {
  if (const auto* content = dynamic_cast<const ContentError*>(&error)) {
    return shortageOrFailure(content->number());
  }
  if (const auto* database = dynamic_cast<const sqlite::DatabaseError*>(&error)) {
    return database->meansFullDisk() ? ENOSPC : shortageOrFailure(database->systemError());
  }
  if (const auto* system = dynamic_cast<const std::system_error*>(&error)) {
    return shortageOrFailure(system->code().value());
  }
  return EIO;
}

bool isShortOfDescriptors(int number) {
  return number == EMFILE || number == ENFILE;
}

bool isTransient(const platform::NSError& error) {
  if (isHandoverError(error)) return true;
  const Row* row = rowFor(error);
  return row && row->transient;
}

std::string descriptionOf(const platform::NSError& error) {
  if (isHandoverError(error)) {
    return "the contents cannot be handed to the host: " +
           std::generic_category().message(static_cast<int>(error.code));
  }
  const Row* row = rowFor(error);
  const std::string code = error.domain + ' ' + std::to_string(error.code);
  return row ? std::string(row->words) + " (" + code + ")" : code;
}

}  // namespace tulo
