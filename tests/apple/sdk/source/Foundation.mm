// What GNUstep's Foundation lacks of Apple's or does otherwise than Apple documents it, as far as
// platform/apple relies on it.
#import <Foundation/Foundation.h>

#include <filesystem>
#include <mutex>
#include <nlohmann/json.hpp>

#include "tests/apple/sdk/StandIns.h"

namespace {

using nlohmann::json;

struct Groups {
  std::mutex mutex;
  std::optional<std::string> container;
  std::string lastRequested;
};

Groups &groups() {
  static Groups &instance = *new Groups;
  return instance;
}

NSString *foundationString(const std::string &text) {
  return [[[NSString alloc] initWithBytes:text.data()
                                   length:text.size()
                                 encoding:NSUTF8StringEncoding] autorelease];
}

std::string utf8(NSString *string) {
  NSData *data = [string dataUsingEncoding:NSUTF8StringEncoding];
  return {static_cast<const char *>([data bytes]), static_cast<std::size_t>([data length])};
}

id foundationValue(const json &value);

id foundationArray(const json &values) {
  NSMutableArray *array = [NSMutableArray array];
  for (const json &value : values) {
    [array addObject:foundationValue(value)];
  }
  return array;
}

id foundationDictionary(const json &object) {
  NSMutableDictionary *dictionary = [NSMutableDictionary dictionary];
  for (const auto &[key, value] : object.items()) {
    [dictionary setObject:foundationValue(value) forKey:foundationString(key)];
  }
  return dictionary;
}

id foundationValue(const json &value) {
  if (value.is_object()) return foundationDictionary(value);
  if (value.is_array()) return foundationArray(value);
  if (value.is_string()) return foundationString(value.get<std::string>());
  if (value.is_boolean()) return [NSNumber numberWithBool:value.get<bool>()];
  if (value.is_number_unsigned()) {
    return [NSNumber numberWithUnsignedLongLong:value.get<unsigned long long>()];
  }
  if (value.is_number_integer()) return [NSNumber numberWithLongLong:value.get<long long>()];
  if (value.is_number()) return [NSNumber numberWithDouble:value.get<double>()];
  return [NSNull null];
}

json jsonValue(id value);

json jsonObject(NSDictionary *dictionary) {
  json object = json::object();
  for (NSString *key in dictionary) {
    object[utf8(key)] = jsonValue([dictionary objectForKey:key]);
  }
  return object;
}

json jsonNumber(NSNumber *number) {
  if ([number isKindOfClass:[[NSNumber numberWithBool:YES] class]]) {
    return static_cast<bool>([number boolValue]);
  }
  if (std::string_view([number objCType]) == @encode(double)) return [number doubleValue];
  return [number longLongValue];
}

json jsonValue(id value) {
  if ([value isKindOfClass:[NSDictionary class]]) return jsonObject(value);
  if ([value isKindOfClass:[NSString class]]) return utf8(value);
  if ([value isKindOfClass:[NSNumber class]]) return jsonNumber(value);
  return nullptr;
}

std::string withEscapedSolidus(const std::string &text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '/') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

NSMutableDictionary *mainBundleInfo() {
  static NSMutableDictionary *info = [NSMutableDictionary new];
  return info;
}

void setError(NSError **error, NSInteger code) {
  if (error != nullptr)
    *error = [NSError errorWithDomain:NSCocoaErrorDomain code:code userInfo:nil];
}

}  // namespace

@implementation NSFileManager (ApplicationGroups)

- (NSURL *)containerURLForSecurityApplicationGroupIdentifier:(NSString *)groupIdentifier {
  const std::scoped_lock lock(groups().mutex);
  groups().lastRequested = utf8(groupIdentifier);
  // A path that is no directory stands for a group that this process may not use.
  if (!groups().container || !std::filesystem::is_directory(*groups().container)) return nil;
  return [NSURL fileURLWithPath:foundationString(*groups().container) isDirectory:YES];
}

@end

// The executables that the tests run have no bundle around them.
@interface NSBundle (TuloSDK)
@end

@implementation NSBundle (TuloSDK)

- (NSDictionary *)infoDictionary {
  return self == [NSBundle mainBundle] ? mainBundleInfo() : [NSDictionary dictionary];
}

@end

// GNUstep's reads much that is no JSON, and writes blanks and plain solidi.
@interface NSJSONSerialization (TuloSDK)
@end

@implementation NSJSONSerialization (TuloSDK)

+ (NSData *)dataWithJSONObject:(id)object
                       options:(NSJSONWritingOptions)options
                         error:(NSError **)error {
  static_cast<void>(options);
  static_cast<void>(error);
  const std::string text = withEscapedSolidus(jsonValue(object).dump());
  return [NSData dataWithBytes:text.data() length:text.size()];
}

+ (id)JSONObjectWithData:(NSData *)data
                 options:(NSJSONReadingOptions)options
                   error:(NSError **)error {
  static_cast<void>(options);
  const auto *bytes = static_cast<const char *>([data bytes]);
  const json decoded = json::parse(bytes, bytes + [data length], nullptr, false);
  if (decoded.is_object() || decoded.is_array()) return foundationValue(decoded);
  setError(error, 3840);
  return nil;
}

@end

// GNUstep's -cancel calls the cancellation handler without looking whether there is one.
@interface NSProgress (TuloSDK)
@end

@implementation NSProgress (TuloSDK)

+ (NSProgress *)progressWithTotalUnitCount:(int64_t)unitCount {
  NSProgress *progress = [[[NSProgress alloc] initWithParent:nil userInfo:nil] autorelease];
  [progress setTotalUnitCount:unitCount];
  [progress setCancellationHandler:^{
  }];
  return progress;
}

@end

namespace tulo::sdk {

void setGroupContainer(std::optional<std::string> path) {
  const std::scoped_lock lock(groups().mutex);
  groups().container = std::move(path);
}

std::string lastRequestedGroup() {
  const std::scoped_lock lock(groups().mutex);
  return groups().lastRequested;
}

void setMainBundleString(const char *key, const char *value) {
  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  setMainBundleValue(key, foundationString(value));
  [pool drain];
}

void setMainBundleValue(const char *key, void *object) {
  NSString *name = foundationString(key);
  if (object == nullptr) {
    [mainBundleInfo() removeObjectForKey:name];
  } else {
    [mainBundleInfo() setObject:static_cast<id>(object) forKey:name];
  }
}

}  // namespace tulo::sdk
