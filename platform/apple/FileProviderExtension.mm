#import "platform/apple/FileProviderExtension.h"

#include "platform/apple/AutoreleasePool.h"
#include "platform/apple/Completion.h"
#import "platform/apple/DirectoryEnumerator.h"
#include "platform/apple/Domain.h"
#include "platform/apple/ExtensionFactory.h"
#include "platform/apple/Progress.h"
#include "platform/apple/SystemItem.h"
#import "platform/apple/TuloItem.h"
#include "platform/apple/UnavailableInitializer.h"
#include "platform/apple/Values.h"

namespace platform = tulo::platform;

using namespace tulo::apple;

namespace {

using ItemBlock = Completion<NSFileProviderItem, NSError *>;
using FetchBlock = Completion<NSURL *, NSFileProviderItem, NSError *>;
using MutationBlock = Completion<NSFileProviderItem, NSFileProviderItemFields, BOOL, NSError *>;
using ErrorBlock = Completion<NSError *>;
using ThumbnailBlock = Callback<NSFileProviderItemIdentifier, NSData *, NSError *>;

platform::MutationCompletion mutationCompletion(MutationBlock::Block block) {
  return [completion = MutationBlock(block)](
             const platform::ItemPointer &item, platform::NSFileProviderItemFields pending,
             bool shouldFetchContent, const std::optional<platform::NSError> &error) {
    completion(toNSItem(item), static_cast<NSFileProviderItemFields>(pending),
               shouldFetchContent ? YES : NO, toNSError(error));
  };
}

platform::PerThumbnailCompletion thumbnailCompletion(ThumbnailBlock::Block block) {
  return
      [callback = ThumbnailBlock(block)](const platform::NSFileProviderItemIdentifier &identifier,
                                         const std::optional<platform::Data> &image,
                                         const std::optional<platform::NSError> &error) {
        // A batch is one piece of work; its images shall not pile up until its end.
        const tulo::apple::AutoreleasePool pool;
        callback(toNSString(identifier), image ? toNSData(*image) : nil, toNSError(error));
      };
}

// What deleting and the end of a batch of thumbnails report.
std::function<void(std::optional<platform::NSError>)> errorCompletion(ErrorBlock::Block block) {
  return [completion = ErrorBlock(block)](const std::optional<platform::NSError> &error) {
    completion(toNSError(error));
  };
}

std::vector<platform::NSFileProviderItemIdentifier> toIdentifiers(NSArray *objects) {
  std::vector<platform::NSFileProviderItemIdentifier> identifiers;
  identifiers.reserve([objects count]);
  for (NSString *object in objects) {
    identifiers.push_back(toString(object));
  }
  return identifiers;
}

}  // namespace

@implementation FileProviderExtension

@synthesize domain = _domain;

- (instancetype)initWithDomain:(NSFileProviderDomain *)domain {
  self = [super init];
  if (self != nil) {
    _domain = [domain retain];
    _extension = makeExtension(toDomain(domain));
    _thumbnailing = std::dynamic_pointer_cast<platform::NSFileProviderThumbnailing>(_extension);
  }
  return self;
}

- (instancetype)init {
  stopForUnavailableInitializer(self);
}

- (void)dealloc {
  [_domain release];
  [super dealloc];
}

- (void)invalidate {
  _extension->invalidate();
}

- (NSProgress *)itemForIdentifier:(NSFileProviderItemIdentifier)identifier
                          request:(NSFileProviderRequest *)request
                completionHandler:(void (^)(NSFileProviderItem, NSError *))completionHandler {
  const ItemBlock completion(completionHandler);
  return toNSProgress(_extension->item(toString(identifier), toRequest(request),
                                       [completion](const platform::ItemPointer &item,
                                                    const std::optional<platform::NSError> &error) {
                                         completion(toNSItem(item), toNSError(error));
                                       }));
}

- (id<NSFileProviderEnumerator>)
    enumeratorForContainerItemIdentifier:(NSFileProviderItemIdentifier)containerItemIdentifier
                                 request:(NSFileProviderRequest *)request
                                   error:(NSError **)error {
  // Every container has its enumerator.
  static_cast<void>(error);
  auto enumerator = _extension->enumerator(toString(containerItemIdentifier), toRequest(request));
  return [[[DirectoryEnumerator alloc] initWithEnumerator:std::move(enumerator)] autorelease];
}

- (NSProgress *)fetchContentsForItemWithIdentifier:(NSFileProviderItemIdentifier)itemIdentifier
                                           version:(NSFileProviderItemVersion *)requestedVersion
                                           request:(NSFileProviderRequest *)request
                                 completionHandler:(void (^)(NSURL *, NSFileProviderItem,
                                                             NSError *))completionHandler {
  return toNSProgress(_extension->fetchContents(
      toString(itemIdentifier), toOptionalItemVersion(requestedVersion), toRequest(request),
      [completion = FetchBlock(completionHandler)](const std::optional<platform::URL> &contents,
                                                   const platform::ItemPointer &item,
                                                   const std::optional<platform::NSError> &error) {
        completion(toNSURL(contents), toNSItem(item), toNSError(error));
      }));
}

- (NSProgress *)createItemBasedOnTemplate:(NSFileProviderItem)itemTemplate
                                   fields:(NSFileProviderItemFields)fields
                                 contents:(NSURL *)url
                                  options:(NSFileProviderCreateItemOptions)options
                                  request:(NSFileProviderRequest *)request
                        completionHandler:(void (^)(NSFileProviderItem, NSFileProviderItemFields,
                                                    BOOL, NSError *))completionHandler {
  return toNSProgress(_extension->createItem(toItem(itemTemplate), fields, toURL(url), options,
                                             toRequest(request),
                                             mutationCompletion(completionHandler)));
}

- (NSProgress *)modifyItem:(NSFileProviderItem)item
               baseVersion:(NSFileProviderItemVersion *)version
             changedFields:(NSFileProviderItemFields)changedFields
                  contents:(NSURL *)newContents
                   options:(NSFileProviderModifyItemOptions)options
                   request:(NSFileProviderRequest *)request
         completionHandler:(void (^)(NSFileProviderItem, NSFileProviderItemFields, BOOL,
                                     NSError *))completionHandler {
  return toNSProgress(_extension->modifyItem(toItem(item), toItemVersion(version), changedFields,
                                             toURL(newContents), options, toRequest(request),
                                             mutationCompletion(completionHandler)));
}

- (NSProgress *)deleteItemWithIdentifier:(NSFileProviderItemIdentifier)identifier
                             baseVersion:(NSFileProviderItemVersion *)version
                                 options:(NSFileProviderDeleteItemOptions)options
                                 request:(NSFileProviderRequest *)request
                       completionHandler:(void (^)(NSError *))completionHandler {
  return toNSProgress(_extension->deleteItem(toString(identifier), toItemVersion(version), options,
                                             toRequest(request),
                                             errorCompletion(completionHandler)));
}

- (NSProgress *)fetchThumbnailsForItemIdentifiers:(NSArray *)itemIdentifiers
                                    requestedSize:(CGSize)size
                    perThumbnailCompletionHandler:(void (^)(NSFileProviderItemIdentifier, NSData *,
                                                            NSError *))perThumbnailCompletionHandler
                                completionHandler:(void (^)(NSError *))completionHandler {
  return toNSProgress(_thumbnailing->fetchThumbnails(
      toIdentifiers(itemIdentifiers), {.width = size.width, .height = size.height},
      thumbnailCompletion(perThumbnailCompletionHandler), errorCompletion(completionHandler)));
}

@end
