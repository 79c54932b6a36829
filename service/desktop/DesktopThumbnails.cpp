#include "service/desktop/DesktopThumbnails.h"

#include <fcntl.h>
#include <gdk-pixbuf/gdk-pixbuf.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <utility>

#include "platform/linux/FileDescriptor.h"
#include "service/desktop/PNGText.h"

namespace tulo {

namespace {

struct ThumbnailSize {
  const char* directory;
  int side;
};
constexpr std::array<ThumbnailSize, 2> kSizes = {
    {{"normal", 128}, {"large", DesktopThumbnails::kLargestSide}}};

constexpr const char* kSoftware = "TuloFileProvider";
// A host's thumbnail is a few hundred pixels wide; more than this is a mistake or an attack.
constexpr std::int64_t kMostPixels = 64LL * 1024 * 1024;
// Small, so that a picture that announces too many pixels is refused before most of it is decoded.
constexpr std::size_t kPiece = 4096;

struct FreeWithGLib {
  void operator()(void* memory) const noexcept { g_free(memory); }
  void operator()(GError* error) const noexcept { g_error_free(error); }
};
struct Unreference {
  void operator()(void* object) const noexcept { g_object_unref(object); }
};
using Text = std::unique_ptr<char, FreeWithGLib>;
using Pixels = std::unique_ptr<GdkPixbuf, Unreference>;
using Loader = std::unique_ptr<GdkPixbufLoader, Unreference>;

// Removes the file unless it was moved to its final name.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string pattern)
      : path_(std::move(pattern)), descriptor_(mkostemp(path_.data(), O_CLOEXEC)) {}
  ~TemporaryFile() {
    if (descriptor_ && !moved_) unlink(path_.c_str());
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  bool write(std::string_view bytes) const {
    while (!bytes.empty()) {
      const ssize_t written = ::write(descriptor_.get(), bytes.data(), bytes.size());
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
  }

  bool moveTo(const std::string& path) {
    moved_ = rename(path_.c_str(), path.c_str()) == 0;
    return moved_;
  }

 private:
  std::string path_;
  FileDescriptor descriptor_;
  bool moved_ = false;
};

void refuseTooLarge(GdkPixbufLoader* /*loader*/, int width, int height, void* refused) {
  if (std::int64_t{width} * height > kMostPixels) *static_cast<bool*>(refused) = true;
}

bool feed(GdkPixbufLoader* loader, std::string_view image, const bool& refused) {
  for (std::size_t at = 0; at < image.size() && !refused; at += kPiece) {
    const std::string_view piece = image.substr(at, kPiece);
    const auto* bytes = reinterpret_cast<const guchar*>(piece.data());
    if (!gdk_pixbuf_loader_write(loader, bytes, piece.size(), nullptr)) return false;
  }
  return !refused;
}

// The two common decoders take a picture that stops half-way and leave the rest of it grey.
bool isCut(std::string_view image) {
  constexpr std::string_view kPNGEnd("IEND\xae\x42\x60\x82", 8);
  if (image.starts_with("\x89PNG")) return image.rfind(kPNGEnd) == std::string_view::npos;
  if (image.starts_with("\xff\xd8")) return image.rfind("\xff\xd9") == std::string_view::npos;
  return false;
}

// The image the right way up; none if any part of it is damaged.
Pixels decoded(std::string_view image) {
  if (isCut(image)) return nullptr;
  bool refused = false;
  const Loader loader(gdk_pixbuf_loader_new());
  g_signal_connect(loader.get(), "size-prepared", G_CALLBACK(refuseTooLarge), &refused);
  const bool fed = feed(loader.get(), image, refused);
  const bool whole = gdk_pixbuf_loader_close(loader.get(), nullptr) != FALSE;
  if (!fed || !whole) return nullptr;
  GdkPixbuf* pixels = gdk_pixbuf_loader_get_pixbuf(loader.get());  // the loader's own
  return Pixels(pixels != nullptr ? gdk_pixbuf_apply_embedded_orientation(pixels) : nullptr);
}

Pixels scaled(const Pixels& picture, int side) {
  const int width = gdk_pixbuf_get_width(picture.get());
  const int height = gdk_pixbuf_get_height(picture.get());
  const int longer = std::max(width, height);
  if (longer <= side) return Pixels(gdk_pixbuf_copy(picture.get()));
  const auto shrunk = [&](int length) {
    return std::max(1, static_cast<int>(std::int64_t{length} * side / longer));
  };
  return Pixels(
      gdk_pixbuf_scale_simple(picture.get(), shrunk(width), shrunk(height), GDK_INTERP_BILINEAR));
}

// As the thumbnail carries it: seconds since 1970.
std::string stamp(const ThumbnailOriginal& original) {
  return std::to_string(original.modified.time_since_epoch().count());
}

std::optional<std::string> png(GdkPixbuf* picture, const std::string& uri,
                               const ThumbnailOriginal& original) {
  const std::string modified = stamp(original);
  const std::string size = std::to_string(original.size);
  char* bytes = nullptr;
  gsize count = 0;
  if (!gdk_pixbuf_save_to_buffer(picture, &bytes, &count, "png", nullptr, "tEXt::Thumb::URI",
                                 uri.c_str(), "tEXt::Thumb::MTime", modified.c_str(),
                                 "tEXt::Thumb::Size", size.c_str(), "tEXt::Software", kSoftware,
                                 nullptr)) {
    return std::nullopt;
  }
  const Text owner(bytes);
  return std::string(bytes, count);
}

// A file's name and content: readers see the old thumbnail or the new one, never a part.
bool publish(const std::string& folder, const std::string& name, std::string_view content) {
  if (g_mkdir_with_parents(folder.c_str(), 0700) != 0) return false;
  TemporaryFile file(folder + "/.tulo-XXXXXX");
  return file.write(content) && file.moveTo(folder + "/" + name);
}

std::string fileName(const std::string& uri) {
  const Text sum(g_compute_checksum_for_string(G_CHECKSUM_MD5, uri.c_str(), -1));
  return std::string(sum.get()) + ".png";
}

}  // namespace

DesktopThumbnails::DesktopThumbnails(std::string directory) : directory_(std::move(directory)) {}

std::optional<std::string> DesktopThumbnails::userDirectory() {
  const char* cache = std::getenv("XDG_CACHE_HOME");
  // A relative path in the variable is to be ignored.
  if (cache != nullptr && *cache == '/') return std::string(cache) + "/thumbnails";
  const char* home = std::getenv("HOME");
  if (home == nullptr || *home != '/') return std::nullopt;
  return std::string(home) + "/.cache/thumbnails";
}

std::optional<std::string> DesktopThumbnails::uri(const std::string& path) {
  if (path.find('\0') != std::string::npos) return std::nullopt;
  const Text uri(g_filename_to_uri(path.c_str(), nullptr, nullptr));
  if (!uri) return std::nullopt;
  return std::string(uri.get());
}

bool DesktopThumbnails::has(const ThumbnailOriginal& original) const {
  const auto address = uri(original.path);
  if (!address) return false;
  const std::string name = fileName(*address);
  const std::string modified = stamp(original);
  return std::all_of(kSizes.begin(), kSizes.end(), [&](const ThumbnailSize& size) {
    const auto texts = pngTexts(directory_ + "/" + size.directory + "/" + name);
    if (!texts) return false;
    const auto found = texts->find("Thumb::MTime");
    return found != texts->end() && found->second == modified;
  });
}

DesktopThumbnails::Outcome DesktopThumbnails::store(const ThumbnailOriginal& original,
                                                    std::string_view image) const {
  const auto address = uri(original.path);
  if (!address) return Outcome::failed;
  const Pixels picture = decoded(image);
  if (!picture) return Outcome::notAPicture;
  for (const ThumbnailSize& size : kSizes) {
    const Pixels small = scaled(picture, size.side);
    const auto content = small ? png(small.get(), *address, original) : std::nullopt;
    const std::string folder = directory_ + "/" + size.directory;
    if (!content || !publish(folder, fileName(*address), *content)) return Outcome::failed;
  }
  return Outcome::written;
}

}  // namespace tulo
