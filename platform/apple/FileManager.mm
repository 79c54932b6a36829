#include "platform/FileManager.h"

#include <sys/stat.h>

#include "platform/ItemPath.h"
#include "platform/UUID.h"
#include "platform/apple/AutoreleasePool.h"
#include "platform/apple/Values.h"

namespace tulo::platform {

namespace {

// One of its own for each call, so that calls on several threads share no state whatever the
// Foundation: the default one is that safe on a Mac, but not everywhere.
NSFileManager *fileManager() { return [[[NSFileManager alloc] init] autorelease]; }

std::string reason(::NSError *error) {
  return apple::toString([error localizedDescription]) + " (" + apple::toString([error domain]) +
         " " + std::to_string([error code]) + ")";
}

[[noreturn]] void fail(const std::string &operation, const std::string &why) {
  throw FileManagerError("cannot " + operation + ": " + why);
}

[[noreturn]] void fail(const std::string &operation, ::NSError *error) {
  fail(operation, reason(error));
}

// Foundation is given only paths that name an item: to some versions the empty path is the working
// directory, and what stands there would be gone.
NSString *pathOfItem(const std::string &operation, const URL &url) {
  const ItemPath place = itemPath(url.path());
  if (place.name.empty()) fail(operation, url.path() + " is not the path of an item in a folder");
  return apple::toNSString(place.path());
}

// Said not to be a directory, lest the file system is asked.
NSURL *fileURL(NSString *path) { return [NSURL fileURLWithPath:path isDirectory:NO]; }

NSString *hiddenNeighbour(NSString *path) {
  const std::string name = "." + randomUUIDString() + ".tmp";
  return [[path stringByDeletingLastPathComponent]
      stringByAppendingPathComponent:apple::toNSString(name)];
}

bool isRegularFile(const std::string &path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool hasNUL(const std::string &path) { return path.find('\0') != std::string::npos; }

}  // namespace

std::optional<URL> FileManager::containerURL(std::string_view applicationGroup) {
  const apple::AutoreleasePool pool;
  return apple::toURL([fileManager()
      containerURLForSecurityApplicationGroupIdentifier:apple::toNSString(applicationGroup)]);
}

bool FileManager::fileExists(const std::string &path) {
  if (hasNUL(path)) return false;
  const apple::AutoreleasePool pool;
  return [fileManager() fileExistsAtPath:apple::toNSString(path)];
}

void FileManager::createDirectory(const URL &directory) {
  const apple::AutoreleasePool pool;
  const std::string operation = "create the folder " + directory.path();
  if (directory.path().empty() || hasNUL(directory.path())) {
    fail(operation, "not the path of a folder");
  }
  ::NSError *error = nil;
  if (![fileManager() createDirectoryAtURL:apple::toNSURL(directory)
               withIntermediateDirectories:YES
                                attributes:nil
                                     error:&error]) {
    // Somebody else may have created it in the same moment.
    BOOL isDirectory = NO;
    NSString *path = [apple::toNSURL(directory) path];
    const BOOL exists = [fileManager() fileExistsAtPath:path isDirectory:&isDirectory];
    if (!exists || !isDirectory) fail(operation, error);
  }
}

void FileManager::removeItem(const URL &item) {
  const apple::AutoreleasePool pool;
  const std::string operation = "remove " + item.path();
  NSString *path = pathOfItem(operation, item);
  ::NSError *error = nil;
  if (![fileManager() removeItemAtURL:fileURL(path) error:&error]) fail(operation, error);
}

// The copy is made under a hidden name and then gets its own, so that a failure never touches what
// somebody else may have put under the destination's name meanwhile.
void FileManager::copyItem(const URL &source, const URL &destination) {
  const apple::AutoreleasePool pool;
  const std::string operation = "copy " + source.path() + " to " + destination.path();
  NSURL *from = fileURL(pathOfItem(operation, source));
  NSString *path = pathOfItem(operation, destination);
  NSURL *unfinished = fileURL(hiddenNeighbour(path));
  ::NSError *error = nil;
  if ([fileManager() copyItemAtURL:from toURL:unfinished error:&error] &&
      [fileManager() moveItemAtURL:unfinished toURL:fileURL(path) error:&error]) {
    return;
  }
  const std::string why = reason(error);
  [fileManager() removeItemAtURL:unfinished error:nullptr];
  fail(operation, why);
}

std::optional<Data> FileManager::contents(const URL &file) {
  // Reading anything else could wait for ever, as the other end of a pipe does.
  if (hasNUL(file.path()) || !isRegularFile(file.path())) return std::nullopt;
  const apple::AutoreleasePool pool;
  NSData *data = [NSData dataWithContentsOfFile:apple::toNSString(file.path())];
  if (data == nil) return std::nullopt;
  return apple::toData(data);
}

}  // namespace tulo::platform
