#include "host/AccountKinds.h"

namespace tulo::host {

namespace {

struct Maker {
  const AccountParts& parts;

  std::unique_ptr<Account> operator()(const FolderSource& source) const {
    return std::make_unique<FolderAccount>(source, parts);
  }
};

}  // namespace

std::unique_ptr<Account> makeAccount(const AccountSource& source, const AccountParts& parts) {
  return std::visit(Maker{parts}, source);
}

}  // namespace tulo::host
