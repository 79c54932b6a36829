#include "host/account/Thumbnails.h"

#include <fcntl.h>
#include <gdk-pixbuf/gdk-pixbuf.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <vector>

#include "host/account/Uncollected.h"
#include "host/base/EntryStat.h"
#include "host/base/Files.h"
#include "host/base/HostError.h"

namespace tulo::host {

namespace {

// Decoding takes four bytes a pixel: more would let one file eat the memory of the machine.
constexpr std::int64_t mostPixels = std::int64_t{1} << 26;
constexpr std::int64_t largestFile = std::int64_t{256} << 20;

struct Unref {
  void operator()(void* object) const { g_object_unref(object); }
};
using LoaderPointer = std::unique_ptr<GdkPixbufLoader, Unref>;
using PixbufPointer = std::unique_ptr<GdkPixbuf, Unref>;

// Owns what a GLib call reports, so that a look at it is a look at the message.
class Failure {
 public:
  ~Failure() { g_clear_error(&error_); }
  GError** out() { return &error_; }
  std::string text() const { return error_ == nullptr ? "no picture" : error_->message; }

 private:
  GError* error_ = nullptr;
};

[[noreturn]] void unsupported(const std::string& why) {
  throw OperationError(kind::unsupported, "no thumbnail: " + why);
}

struct Size {
  int width = 0;
  int height = 0;
};

Size fitted(int width, int height) {
  const double scale = static_cast<double>(thumbnailSize) / std::max(width, height);
  if (scale >= 1) return {width, height};
  return {std::max(1, static_cast<int>(width * scale)),
          std::max(1, static_cast<int>(height * scale))};
}

// Called when the loader knows the size: decoding straight to the small one saves time and memory.
void chooseSize(GdkPixbufLoader* loader, int width, int height, void* tooLarge) {
  if (width <= 0 || height <= 0) return;
  const Size size = fitted(width, height);
  *static_cast<bool*>(tooLarge) = static_cast<std::int64_t>(width) * height > mostPixels;
  gdk_pixbuf_loader_set_size(loader, size.width, size.height);
}

// Feeds the whole file. False as soon as the loader refuses it.
bool feed(GdkPixbufLoader* loader, int file, const bool& tooLarge, Failure& failure) {
  std::vector<unsigned char> buffer(65536);
  off_t offset = 0;
  while (!tooLarge) {
    const ssize_t count = ::pread(file, buffer.data(), buffer.size(), offset);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw systemError(errno, "reading an image");
    if (count == 0) return true;
    offset += count;
    if (gdk_pixbuf_loader_write(loader, buffer.data(), static_cast<gsize>(count), failure.out()) ==
        FALSE) {
      return false;
    }
  }
  return false;
}

PixbufPointer decode(int file) {
  const LoaderPointer loader(gdk_pixbuf_loader_new());
  bool tooLarge = false;
  g_signal_connect(loader.get(), "size-prepared", G_CALLBACK(chooseSize), &tooLarge);
  Failure failure;
  const bool fed = feed(loader.get(), file, tooLarge, failure);
  // A loader must be closed whatever has happened; its verdict counts only after a full file.
  const bool closed = gdk_pixbuf_loader_close(loader.get(), fed ? failure.out() : nullptr) != FALSE;
  if (tooLarge) unsupported("the image has too many pixels");
  if (!fed || !closed) unsupported(failure.text());
  GdkPixbuf* pixbuf = gdk_pixbuf_loader_get_pixbuf(loader.get());
  if (pixbuf == nullptr) unsupported("the file has no picture");
  PixbufPointer upright(gdk_pixbuf_apply_embedded_orientation(pixbuf));
  if (!upright) unsupported("out of memory");
  return upright;
}

// Some loaders deliver the full size whatever they were asked for.
PixbufPointer bounded(PixbufPointer pixbuf) {
  const int width = gdk_pixbuf_get_width(pixbuf.get());
  const int height = gdk_pixbuf_get_height(pixbuf.get());
  const Size size = fitted(width, height);
  if (size.width == width && size.height == height) return pixbuf;
  PixbufPointer small(
      gdk_pixbuf_scale_simple(pixbuf.get(), size.width, size.height, GDK_INTERP_BILINEAR));
  if (!small) unsupported("out of memory");
  return small;
}

void writeFile(int folder, const std::string& name, const std::string& bytes) {
  constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC;
  const FileDescriptor file(::openat(folder, name.c_str(), flags, 0600));
  if (!file) throw systemError(errno, "writing a thumbnail");
  std::size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t count = ::write(file.get(), bytes.data() + written, bytes.size() - written);
    if (count < 0 && errno != EINTR) throw systemError(errno, "writing a thumbnail");
    if (count > 0) written += static_cast<std::size_t>(count);
  }
}

std::string fileName(const std::string& ulid, std::int64_t version) {
  return ulid + "-" + std::to_string(version) + ".png";
}

}  // namespace

std::string renderThumbnail(int file) {
  if (statDescriptor(file).size > largestFile) unsupported("the file is too large");
  const PixbufPointer pixbuf = bounded(decode(file));
  gchar* data = nullptr;
  gsize size = 0;
  Failure failure;
  if (gdk_pixbuf_save_to_buffer(pixbuf.get(), &data, &size, "png", failure.out(), nullptr) ==
      FALSE) {
    throw OperationError(kind::io, "no thumbnail: " + failure.text());
  }
  const std::unique_ptr<gchar, void (*)(void*)> owner(data, g_free);
  return {data, size};
}

Thumbnails::Thumbnails(const Container& container, const HostLog& log)
    : container_(container), log_(log) {
  open();
}

FileDescriptor Thumbnails::open() const {
  return makeFolder(container_.folder(), Container::thumbnailName);
}

std::optional<std::string> Thumbnails::find(const std::string& ulid, std::int64_t version) const {
  const std::string name = fileName(ulid, version);
  if (!statEntry(open().get(), name)) return std::nullopt;
  return container_.pathOf(Container::thumbnailName) + "/" + name;
}

std::string Thumbnails::render(const std::string& ulid, std::int64_t version, int file) const {
  const std::string bytes = renderThumbnail(file);
  const FileDescriptor folder = open();
  const std::string name = fileName(ulid, version);
  const std::string temporary = "." + name + "." + std::to_string(::gettid());
  writeFile(folder.get(), temporary, bytes);
  if (::renameat(folder.get(), temporary.c_str(), folder.get(), name.c_str()) != 0) {
    throw systemError(errno, "writing a thumbnail");
  }
  if (version > 1) ::unlinkat(folder.get(), fileName(ulid, version - 1).c_str(), 0);
  return container_.pathOf(Container::thumbnailName) + "/" + name;
}

void Thumbnails::removeUncollected(std::chrono::seconds age,
                                   std::chrono::system_clock::time_point now) {
  const FileDescriptor folder = open();
  const auto isInUse = [](const std::string&) { return false; };
  const auto names = host::removeUncollected(folder.get(), age, now, isInUse, log_);
  if (!names.empty()) {
    log_.info("swept " + std::to_string(names.size()) + " thumbnails of long ago");
  }
}

}  // namespace tulo::host
