// The thumbnails that file managers draw, in the place and form in which every desktop looks for
// them: $XDG_CACHE_HOME/thumbnails, one PNG file for each picture and size, named after the MD5 of
// the file's URI and valid for one modification time.
//
// A file that the host has no thumbnail of gets no "fail" entry. Such an entry belongs to one
// thumbnailing program (its directory carries the program's name) and would outlive the day on
// which the file is downloaded, from when on the desktop can draw it from its contents. Until then
// a thumbnailer that tries is refused (DownloadPolicy) and takes its own note of that.
//
// Threads: every member may be called on any thread.
// Errors: thumbnails are an extra, so failures are results, never exceptions, and leave nothing
// behind.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "service/base/Time.h"

namespace tulo {

// The file that a thumbnail shows. `path` is absolute, as a user reaches it through the mount.
struct ThumbnailOriginal {
  std::string path;
  WallSeconds modified{};
  std::int64_t size = 0;  // bytes
};

class DesktopThumbnails {
 public:
  // The longer side of a picture of the larger size, which is what to ask the host for.
  static constexpr int kLargestSide = 256;

  // The directory that holds the sizes' directories; made when the first thumbnail is written.
  explicit DesktopThumbnails(std::string directory);

  // Where this user's desktop looks; nothing without $XDG_CACHE_HOME and a home directory.
  static std::optional<std::string> userDirectory();

  // "file://" and the percent-encoded path, spelled as the desktop does; nothing for a path that
  // is not absolute.
  static std::optional<std::string> uri(const std::string& path);

  // Whether all sizes are there for this file as it is now.
  bool has(const ThumbnailOriginal& original) const;

  enum class Outcome {
    written,
    notAPicture,  // the bytes are no image of a known kind, are damaged, or decode to too much
    failed,       // the path or the cache cannot be used
  };

  // Writes all sizes from an image of any kind that gdk-pixbuf reads. A picture is never enlarged.
  Outcome store(const ThumbnailOriginal& original, std::string_view image) const;

 private:
  std::string directory_;
};

}  // namespace tulo
