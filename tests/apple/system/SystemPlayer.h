// The system's side of the protocol, played with the objects and blocks that a Mac hands over.
//
// Nothing here goes through the conversions of platform/apple, which are what is tested.
#pragma once

#import <FileProvider/FileProvider.h>

#include <dispatch/dispatch.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/apple/AutoreleasePool.h"
#include "platform/apple/Retained.h"
#include "tests/support/Eventually.h"

namespace tulo::test {

using ExtensionObject = NSObject<NSFileProviderReplicatedExtension, NSFileProviderThumbnailing>;
template <typename Pointer>
using Retained = apple::Retained<Pointer>;

// The class, looked up by its name as the system does.
Class principalClass();

NSString *ns(const std::string &text);
NSData *bytes(const std::string &text);
std::string text(NSString *string);
std::string text(NSData *data);

// "DOMAIN CODE", and the number of entries if there is a user-info dictionary; "none" for nil.
std::string described(NSError *error);

// All that an item says, in one line; "none" for nil.
std::string described(NSFileProviderItem item);

NSFileProviderDomain *domainFor(const std::string &account);
NSFileProviderRequest *request();

// The extension of one account, made as the system makes it.
Retained<ExtensionObject *> extensionFor(const std::string &account);

// What one call of a block brought.
struct Answer {
  Retained<NSFileProviderItem> item;
  Retained<NSURL *> url;
  Retained<NSString *> identifier;
  Retained<NSData *> data;
  Retained<NSError *> error;
  NSFileProviderItemFields pendingFields = 0;
  BOOL shouldFetchContent = NO;
  std::thread::id thread = std::this_thread::get_id();
  qos_class_t qualityOfService = qos_class_self();
};

template <typename Pointer>
Retained<Pointer> retained(Pointer object) {
  return Retained<Pointer>::retaining(object);
}

// The calls of one block. Copies share them; the block holds a copy.
class Answers {
 public:
  void add(Answer answer) const {
    const std::scoped_lock lock(state_->mutex);
    state_->answers.push_back(std::move(answer));
    state_->changed.notify_all();
  }

  bool waitFor(std::size_t count) const {
    std::unique_lock lock(state_->mutex);
    return state_->changed.wait_for(lock, patience,
                                    [&] { return state_->answers.size() >= count; });
  }

  std::vector<Answer> all() const {
    const std::scoped_lock lock(state_->mutex);
    return state_->answers;
  }

  // The only one. Throws std::bad_optional_access unless there is exactly one.
  Answer only() const {
    const auto answers = all();
    std::optional<Answer> only;
    if (answers.size() == 1) only = answers.front();
    return only.value();
  }

  // Whether no block holds a copy any more.
  bool areReleased() const { return state_.use_count() == 1; }

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Answer> answers;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

// One request with its progress and what its block was called with. The blocks are made on the
// stack of the function that sends the request, and gone when it returns.
struct Call {
  Answers answers;
  Retained<NSProgress *> progress;

  // Waits for the answer and for the progress to be complete.
  Answer finished() const;
};

Call lookUp(ExtensionObject *extension, const std::string &identifier);
Call fetch(ExtensionObject *extension, const std::string &identifier);
Call create(ExtensionObject *extension, NSFileProviderItem itemTemplate, NSURL *contents = nil);
Call modify(ExtensionObject *extension, NSFileProviderItem item, NSFileProviderItemFields fields,
            NSURL *contents = nil);
Call remove(ExtensionObject *extension, const std::string &identifier);

struct ThumbnailsCall : Call {
  Answers images;
};
ThumbnailsCall fetchThumbnails(ExtensionObject *extension,
                               const std::vector<std::string> &identifiers);

}  // namespace tulo::test

// An item as the system hands it to a mutation: only the required properties.
@interface TemplateItem : NSObject <NSFileProviderItem> {
 @private
  NSString *_identifier;
  NSString *_parent;
  NSString *_name;
}
+ (instancetype)itemWithIdentifier:(NSString *)identifier
                            parent:(NSString *)parent
                              name:(NSString *)name;
@end

// The same with a content type.
@interface TypedTemplateItem : TemplateItem {
 @private
  UTType *_type;
}
@property(nonatomic, readwrite, copy) UTType *contentType;
@end

// Writes the calls of both kinds of observer down: "items N", "finished", "finished with page P",
// "finished at ANCHOR", "updates N", "deletions N", "error ...". Used on one thread.
@interface RecordingObserver
    : NSObject <NSFileProviderEnumerationObserver, NSFileProviderChangeObserver> {
 @private
  NSMutableArray *_items;
  std::vector<std::string> _calls;
}
+ (instancetype)observer;
- (NSArray *)items;
- (const std::vector<std::string> &)calls;
@end
