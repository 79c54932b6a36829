#include "tests/service/Pictures.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

namespace tulo::test {

std::string picture(int width, int height, const std::string& kind) {
  GdkPixbuf* pixels = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, width, height);
  gdk_pixbuf_fill(pixels, 0x336699ff);
  char* bytes = nullptr;
  gsize count = 0;
  gdk_pixbuf_save_to_buffer(pixels, &bytes, &count, kind.c_str(), nullptr, nullptr);
  std::string result(bytes, count);
  g_free(bytes);
  g_object_unref(pixels);
  return result;
}

std::string turnedPicture(int width, int height) {
  const std::string plain = picture(width, height, "jpeg");
  // A camera's note of how it was held: one big-endian entry, tag 0x0112, value 6.
  const std::string note(
      "\xff\xe1\x00\x22"
      "Exif\0\0"
      "MM\0\x2a\0\0\0\x08"
      "\0\x01\x01\x12\0\x03\0\0\0\x01\0\x06\0\0"
      "\0\0\0\0",
      36);
  return plain.substr(0, 2) + note + plain.substr(2);
}

ReadPicture readPicture(const std::string& path) {
  ReadPicture result;
  GdkPixbuf* pixels = gdk_pixbuf_new_from_file(path.c_str(), nullptr);
  if (pixels == nullptr) return result;
  result.width = gdk_pixbuf_get_width(pixels);
  result.height = gdk_pixbuf_get_height(pixels);
  for (const char* key : {"Thumb::URI", "Thumb::MTime", "Thumb::Size", "Software"}) {
    const char* value = gdk_pixbuf_get_option(pixels, ("tEXt::" + std::string(key)).c_str());
    if (value != nullptr) result.texts[key] = value;
  }
  g_object_unref(pixels);
  return result;
}

}  // namespace tulo::test
