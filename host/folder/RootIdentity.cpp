#include "host/folder/RootIdentity.h"

#include "host/account/AccountName.h"
#include "host/base/Files.h"
#include "host/base/HostError.h"

namespace tulo::host {

namespace {

constexpr const char* rootKey = "root";
constexpr const char* inodeKey = "root_inode";

bool isEmpty(int folder) {
  bool isEmpty = true;
  forEachEntry(folder, [&](const std::string&) { isEmpty = false; });
  return isEmpty;
}

}  // namespace

std::string accountIdentity(const std::string& folder) {
  return "folder:" + folder;
}

void requireSameRoot(FolderIndex& index, const ServedFolder& folder, const std::string& account) {
  IndexState& state = index.state();
  const auto before = state.value(rootKey);
  if (before && *before != folder.path()) {
    throw StartError("the index of the account \"" + account +
                     "\" in this container belongs to the folder " + *before + ", not to " +
                     folder.path() + "; choose another --container, or remove " +
                     indexFileName(account));
  }
  const std::string inode = std::to_string(statDescriptor(folder.descriptor()).inode);
  const Counts known = index.rows().counts();
  if (before && state.value(inodeKey) != inode && known.folders + known.items > 0 &&
      isEmpty(folder.descriptor())) {
    throw StartError("the folder " + folder.path() +
                     " is empty and not the one that was served before; is its disk mounted? If "
                     "it is meant to be empty, remove " +
                     indexFileName(account));
  }
  state.set(rootKey, folder.path());
  state.set(inodeKey, inode);
  index.database().identify(accountIdentity(folder.path()));
  index.database().commit();
}

}  // namespace tulo::host
