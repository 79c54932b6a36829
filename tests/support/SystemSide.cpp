#include "tests/support/SystemSide.h"

#include <sstream>

namespace tulo::test {

void RecordingObserver::didEnumerateItems(std::vector<platform::ItemPointer> items) {
  calls_.push_back("items " + std::to_string(items.size()));
  items_.insert(items_.end(), items.begin(), items.end());
}

void RecordingObserver::finishEnumeratingUpToPage(
    std::optional<platform::NSFileProviderPage> nextPage) {
  calls_.push_back(nextPage ? "finished with page " + *nextPage : "finished");
}

void RecordingObserver::finishEnumeratingWithError(const platform::NSError& error) {
  calls_.push_back("error " + std::to_string(error.code));
}

std::vector<std::string> RecordingObserver::filenames() const {
  std::vector<std::string> names;
  for (const auto& item : items_)
    names.push_back(item->filename());
  return names;
}

void RecordingChangeObserver::didUpdateItems(std::vector<platform::ItemPointer> items) {
  calls_.push_back("updates " + std::to_string(items.size()));
}

void RecordingChangeObserver::didDeleteItems(
    std::vector<platform::NSFileProviderItemIdentifier> identifiers) {
  calls_.push_back("deletions " + std::to_string(identifiers.size()));
}

void RecordingChangeObserver::finishEnumeratingChanges(
    const platform::NSFileProviderSyncAnchor& anchor, bool moreComing) {
  calls_.push_back("finished at " + anchor + (moreComing ? ", more coming" : ""));
}

void RecordingChangeObserver::finishEnumeratingWithError(const platform::NSError& error) {
  calls_.push_back("error " + std::to_string(error.code));
  error_ = error;
}

std::string described(const platform::NSFileProviderItem& item) {
  const auto type = item.contentType();
  const auto size = item.documentSize();
  const auto modified = item.contentModificationDate();
  const auto version = item.itemVersion();
  std::ostringstream out;
  out << item.itemIdentifier() << " in " << item.parentItemIdentifier() << " named "
      << item.filename() << " type " << (type ? type->identifier() : "none") << " may "
      << item.capabilities() << " size " << (size ? std::to_string(*size) : "none") << " modified "
      << (modified ? std::to_string(modified->time_since_epoch().count()) : "none")
      << (item.isUploaded() ? " uploaded" : "") << (item.isDownloaded() ? " downloaded" : "")
      << " version " << version.contentVersion << " / " << version.metadataVersion;
  return out.str();
}

}  // namespace tulo::test

namespace tulo::platform {

std::ostream& operator<<(std::ostream& out, const NSError& error) {
  out << error.domain << " " << error.code;
  if (!error.userInfo) return out << " without user info";
  return out << " with " << error.userInfo->size() << " user-info values";
}

std::ostream& operator<<(std::ostream& out, const URL& url) {
  return out << url.path();
}

}  // namespace tulo::platform
