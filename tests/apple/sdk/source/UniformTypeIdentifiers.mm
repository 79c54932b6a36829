// A handful of types. Extensions are compared without regard to case; one that nobody declares
// gives no type, except that "tulodyn" stands for those of which a Mac makes a dynamic type.
#import <UniformTypeIdentifiers/UniformTypeIdentifiers.h>

#include <map>
#include <string>

namespace {

const std::map<std::string, std::string> &identifiersByExtension() {
  static const auto &table = *new std::map<std::string, std::string>{
      {"txt", "public.plain-text"},
      {"html", "public.html"},
      {"json", "public.json"},
      {"png", "public.png"},
      {"jpg", "public.jpeg"},
      {"jpeg", "public.jpeg"},
      {"gif", "com.compuserve.gif"},
      {"pdf", "com.adobe.pdf"},
      {"zip", "public.zip-archive"},
      {"gz", "org.gnu.gnu-zip-archive"},
      {"tulodyn", "dyn.ah62d4rv4ge81k55tr6w1k"},
  };
  return table;
}

}  // namespace

@interface UTType ()
- (instancetype)initWithTuloIdentifier:(NSString *)identifier;
@end

UTType *UTTypeItem;
UTType *UTTypeData;
UTType *UTTypeFolder;
UTType *UTTypePackage;

@implementation UTType

+ (void)load {
  UTTypeItem = [[UTType alloc] initWithTuloIdentifier:@"public.item"];
  UTTypeData = [[UTType alloc] initWithTuloIdentifier:@"public.data"];
  UTTypeFolder = [[UTType alloc] initWithTuloIdentifier:@"public.folder"];
  UTTypePackage = [[UTType alloc] initWithTuloIdentifier:@"com.apple.package"];
}

- (instancetype)initWithTuloIdentifier:(NSString *)identifier {
  self = [super init];
  if (self != nil) _identifier = [identifier copy];
  return self;
}

- (void)dealloc {
  [_identifier release];
  [super dealloc];
}

+ (instancetype)typeWithIdentifier:(NSString *)identifier {
  if ([identifier length] == 0) return nil;
  return [[[UTType alloc] initWithTuloIdentifier:identifier] autorelease];
}

+ (instancetype)typeWithFilenameExtension:(NSString *)filenameExtension {
  return [self typeWithFilenameExtension:filenameExtension conformingToType:UTTypeData];
}

+ (instancetype)typeWithFilenameExtension:(NSString *)filenameExtension
                         conformingToType:(UTType *)supertype {
  const auto found =
      identifiersByExtension().find([[filenameExtension lowercaseString] UTF8String]);
  if (found == identifiersByExtension().end() || ![supertype isEqual:UTTypeData]) return nil;
  return [self typeWithIdentifier:[NSString stringWithUTF8String:found->second.c_str()]];
}

- (NSString *)identifier {
  return _identifier;
}

- (id)copyWithZone:(NSZone *)zone {
  static_cast<void>(zone);
  return [self retain];
}

- (BOOL)isEqual:(id)other {
  return [other isKindOfClass:[UTType class]] && [[other identifier] isEqualToString:_identifier];
}

- (NSUInteger)hash {
  return [_identifier hash];
}

- (BOOL)conformsToType:(UTType *)type {
  return [self isEqual:type] || [type isEqual:UTTypeItem];
}

@end
