#import "tests/apple/system/SystemPlayer.h"

#include "index/Index.h"

namespace tulo::test {

Class principalClass() { return NSClassFromString(@"FileProviderExtension"); }

NSString *ns(const std::string &text) {
  return [[[NSString alloc] initWithBytes:text.data()
                                   length:text.size()
                                 encoding:NSUTF8StringEncoding] autorelease];
}

NSData *bytes(const std::string &text) {
  return [NSData dataWithBytes:text.data() length:text.size()];
}

std::string text(NSString *string) {
  return string == nil ? "none" : text([string dataUsingEncoding:NSUTF8StringEncoding]);
}

std::string text(NSData *data) {
  if (data == nil) return "none";
  return {static_cast<const char *>([data bytes]), static_cast<std::size_t>([data length])};
}

std::string described(NSError *error) {
  if (error == nil) return "none";
  const std::string base = text([error domain]) + " " + std::to_string([error code]);
  if ([error userInfo] == nil) return base;
  return base + " with " + std::to_string([[error userInfo] count]) + " entries";
}

std::string described(NSFileProviderItem item) {
  if (item == nil) return "none";
  const auto numberOr = [](id number, const auto &value) {
    return number == nil ? std::string("none") : std::to_string(value(number));
  };
  return text([item itemIdentifier]) + " in " + text([item parentItemIdentifier]) + " named " +
         text([item filename]) + " type " + text([[item contentType] identifier]) + " may " +
         std::to_string([item capabilities]) + " size " +
         numberOr([item documentSize], [](NSNumber *size) { return [size longLongValue]; }) +
         " modified " +
         numberOr(
             [item contentModificationDate],
             [](NSDate *date) { return static_cast<long long>([date timeIntervalSince1970]); }) +
         ([item isUploaded] ? " uploaded" : " not uploaded") +
         ([item isDownloaded] ? " downloaded" : "") + " version " +
         text([[item itemVersion] contentVersion]) + " / " +
         text([[item itemVersion] metadataVersion]);
}

NSFileProviderDomain *domainFor(const std::string &account) {
  return [[[NSFileProviderDomain alloc] initWithIdentifier:ns(Index::domainPrefix() + account)
                                               displayName:@"Tulo Hub"] autorelease];
}

NSFileProviderRequest *request() { return [[[NSFileProviderRequest alloc] init] autorelease]; }

Retained<ExtensionObject *> extensionFor(const std::string &account) {
  return Retained<ExtensionObject *>::adopting(
      [[principalClass() alloc] initWithDomain:domainFor(account)]);
}

Answer Call::finished() const {
  if (!answers.waitFor(1)) return {};
  NSProgress *counter = progress.get();
  eventually([&] { return [counter completedUnitCount] == [counter totalUnitCount]; });
  return answers.only();
}

namespace {

void addMutation(const Answers &answers, NSFileProviderItem item, NSFileProviderItemFields fields,
                 BOOL shouldFetchContent, NSError *error) {
  answers.add({.item = retained(item),
               .error = retained(error),
               .pendingFields = fields,
               .shouldFetchContent = shouldFetchContent});
}

NSFileProviderItemVersion *anyVersion() {
  return [[[NSFileProviderItemVersion alloc] initWithContentVersion:bytes("1")
                                                    metadataVersion:bytes("1-name")] autorelease];
}

NSArray *array(const std::vector<std::string> &texts) {
  NSMutableArray *array = [NSMutableArray array];
  for (const std::string &text : texts) [array addObject:ns(text)];
  return array;
}

}  // namespace

Call lookUp(ExtensionObject *extension, const std::string &identifier) {
  const Answers answers;
  NSProgress *progress =
      [extension itemForIdentifier:ns(identifier)
                           request:request()
                 completionHandler:^(NSFileProviderItem item, NSError *error) {
                   answers.add({.item = retained(item), .error = retained(error)});
                 }];
  return {answers, retained(progress)};
}

Call fetch(ExtensionObject *extension, const std::string &identifier) {
  const Answers answers;
  NSProgress *progress = [extension
      fetchContentsForItemWithIdentifier:ns(identifier)
                                 version:nil
                                 request:request()
                       completionHandler:^(NSURL *url, NSFileProviderItem item, NSError *error) {
                         answers.add({.item = retained(item),
                                      .url = retained(url),
                                      .error = retained(error)});
                       }];
  return {answers, retained(progress)};
}

Call create(ExtensionObject *extension, NSFileProviderItem itemTemplate, NSURL *contents) {
  const Answers answers;
  NSProgress *progress = [extension
      createItemBasedOnTemplate:itemTemplate
                         fields:NSFileProviderItemFilename
                       contents:contents
                        options:NSFileProviderCreateItemMayAlreadyExist
                        request:request()
              completionHandler:^(NSFileProviderItem item, NSFileProviderItemFields fields,
                                  BOOL shouldFetchContent, NSError *error) {
                addMutation(answers, item, fields, shouldFetchContent, error);
              }];
  return {answers, retained(progress)};
}

Call modify(ExtensionObject *extension, NSFileProviderItem item, NSFileProviderItemFields fields,
            NSURL *contents) {
  const Answers answers;
  NSProgress *progress =
      [extension modifyItem:item
                baseVersion:anyVersion()
              changedFields:fields
                   contents:contents
                    options:0
                    request:request()
          completionHandler:^(NSFileProviderItem changed, NSFileProviderItemFields pending,
                              BOOL shouldFetchContent, NSError *error) {
            addMutation(answers, changed, pending, shouldFetchContent, error);
          }];
  return {answers, retained(progress)};
}

Call remove(ExtensionObject *extension, const std::string &identifier) {
  const Answers answers;
  NSProgress *progress = [extension deleteItemWithIdentifier:ns(identifier)
                                                 baseVersion:anyVersion()
                                                     options:NSFileProviderDeleteItemRecursive
                                                     request:request()
                                           completionHandler:^(NSError *error) {
                                             answers.add({.error = retained(error)});
                                           }];
  return {answers, retained(progress)};
}

ThumbnailsCall fetchThumbnails(ExtensionObject *extension,
                               const std::vector<std::string> &identifiers) {
  const Answers answers;
  const Answers images;
  NSProgress *progress = [extension fetchThumbnailsForItemIdentifiers:array(identifiers)
      requestedSize:NSMakeSize(256, 128)
      perThumbnailCompletionHandler:^(NSString *identifier, NSData *data, NSError *error) {
        images.add(
            {.identifier = retained(identifier), .data = retained(data), .error = retained(error)});
      }
      completionHandler:^(NSError *error) {
        answers.add({.error = retained(error)});
      }];
  return {{answers, retained(progress)}, images};
}

}  // namespace tulo::test

@implementation TemplateItem

+ (instancetype)itemWithIdentifier:(NSString *)identifier
                            parent:(NSString *)parent
                              name:(NSString *)name {
  TemplateItem *item = [[[self alloc] init] autorelease];
  item->_identifier = [identifier copy];
  item->_parent = [parent copy];
  item->_name = [name copy];
  return item;
}

- (void)dealloc {
  [_identifier release];
  [_parent release];
  [_name release];
  [super dealloc];
}

- (NSFileProviderItemIdentifier)itemIdentifier {
  return _identifier;
}

- (NSFileProviderItemIdentifier)parentItemIdentifier {
  return _parent;
}

- (NSString *)filename {
  return _name;
}

@end

@implementation TypedTemplateItem
@synthesize contentType = _type;

- (void)dealloc {
  [_type release];
  [super dealloc];
}

@end

@implementation RecordingObserver

+ (instancetype)observer {
  return [[[self alloc] init] autorelease];
}

- (instancetype)init {
  self = [super init];
  if (self != nil) _items = [NSMutableArray new];
  return self;
}

- (void)dealloc {
  [_items release];
  [super dealloc];
}

- (NSArray *)items {
  return _items;
}

- (const std::vector<std::string> &)calls {
  return _calls;
}

- (void)didEnumerateItems:(NSArray *)updatedItems {
  _calls.push_back("items " + std::to_string([updatedItems count]));
  [_items addObjectsFromArray:updatedItems];
}

- (void)finishEnumeratingUpToPage:(NSFileProviderPage)nextPage {
  _calls.push_back(nextPage == nil ? "finished"
                                   : "finished with page " + tulo::test::text(nextPage));
}

- (void)finishEnumeratingWithError:(NSError *)error {
  _calls.push_back("error " + tulo::test::described(error));
}

- (void)didUpdateItems:(NSArray *)updatedItems {
  _calls.push_back("updates " + std::to_string([updatedItems count]));
}

- (void)didDeleteItemsWithIdentifiers:(NSArray *)deletedItemIdentifiers {
  _calls.push_back("deletions " + std::to_string([deletedItemIdentifiers count]));
}

- (void)finishEnumeratingChangesUpToSyncAnchor:(NSFileProviderSyncAnchor)anchor
                                    moreComing:(BOOL)moreComing {
  _calls.push_back("finished at " + tulo::test::text(anchor) + (moreComing ? ", more coming" : ""));
}

@end
