#include "service/kernel/RescueNews.h"

namespace tulo {

Invalidations newsOf(const std::vector<Rescued>& rescued) {
  Invalidations news;
  for (const Rescued& each : rescued) {
    news.push_back(entryChanged(each.formerFolder, each.formerName));
    news.push_back(entryChanged(each.folder, each.name));
    news.push_back(dataChanged(each.folder));
  }
  if (rescued.empty()) return news;
  // The folder may be new.
  news.push_back(entryChanged(kRootNode, kRecoveryFolder));
  news.push_back(dataChanged(kRootNode));
  return news;
}

}  // namespace tulo
