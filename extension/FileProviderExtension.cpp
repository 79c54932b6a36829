#include "extension/FileProviderExtension.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "extension/ExtensionLog.h"
#include "index/Index.h"
#include "platform/Deployment.h"

namespace tulo {
namespace {

std::shared_ptr<platform::NSFileProviderManager> managerOrAbort(
    const platform::DomainPointer& domain) {
  if (auto manager = platform::NSFileProviderManager::managerForDomain(domain)) return manager;
  std::fprintf(stderr, "tulo: the system has no manager for the domain %s\n",
               domain->identifier().c_str());
  std::abort();
}

}  // namespace

const platform::Log& extensionLog() {
  static const platform::Log log(std::string(deployment::hostBundleIdentifier) + ".fileprovider",
                                 "Extension");
  return log;
}

FileProviderExtension::FileProviderExtension(platform::DomainPointer domain)
    : domain_(std::move(domain)),
      manager_(managerOrAbort(domain_)),
      databaseName_(Index::databaseName(*domain_)),
      account_(Index::accountId(*domain_)) {
  extensionLog().info("init for domain %{public}@ (index %{public}@)",
                      {domain_->identifier(), databaseName_});
}

void FileProviderExtension::invalidate() {}

}  // namespace tulo
