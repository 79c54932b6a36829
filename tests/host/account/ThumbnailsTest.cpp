#include "host/account/Thumbnails.h"

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gmock/gmock.h>

#include <filesystem>

#include "tests/host/HostFixture.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;

struct Unref {
  void operator()(void* object) const { g_object_unref(object); }
};
using PixbufPointer = std::unique_ptr<GdkPixbuf, Unref>;

// Red on the left half, blue on the right one.
PixbufPointer picture(int width, int height) {
  PixbufPointer pixbuf(gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, width, height));
  gdk_pixbuf_fill(pixbuf.get(), 0xFF0000FF);
  const PixbufPointer right(
      gdk_pixbuf_new_subpixbuf(pixbuf.get(), width / 2, 0, width - width / 2, height));
  gdk_pixbuf_fill(right.get(), 0x0000FFFF);
  return pixbuf;
}

std::string encoded(GdkPixbuf* pixbuf, const char* type) {
  gchar* data = nullptr;
  gsize size = 0;
  EXPECT_TRUE(gdk_pixbuf_save_to_buffer(pixbuf, &data, &size, type, nullptr, nullptr));
  std::string bytes(data, size);
  g_free(data);
  return bytes;
}

// A JPEG with an orientation tag behind its first marker.
std::string rotatedJpeg(int width, int height, char orientation) {
  std::string exif(
      "\xFF\xE1\x00\x22"
      "Exif\0\0"
      "MM\0*\0\0\0\x08"
      "\0\x01"
      "\x01\x12\0\x03\0\0\0\x01\0",
      29);
  exif += orientation;
  exif += std::string(
      "\0\0"
      "\0\0\0\0",
      6);
  std::string bytes = encoded(picture(width, height).get(), "jpeg");
  return bytes.insert(2, exif);
}

class HostThumbnailTest : public HostTest {
 protected:
  json thumbnail(const std::string& path) {
    return ask({{"op", "thumbnail"}, {"ulid", row(path).ulid}});
  }
  PixbufPointer rendered(const std::string& path) {
    const json reply = thumbnail(path);
    EXPECT_EQ(reply["ok"], true) << reply;
    const std::string file = reply.value("path", "");
    EXPECT_EQ(readFile(file).substr(1, 3), "PNG");
    PixbufPointer pixbuf(gdk_pixbuf_new_from_file(file.c_str(), nullptr));
    EXPECT_NE(pixbuf, nullptr);
    return pixbuf;
  }
};

TEST_F(HostThumbnailTest, LargePicturesAreMadeSmallWithTheirAspect) {
  makeFile("wide.png", encoded(picture(2000, 1000).get(), "png"));
  makeFile("tall.jpg", encoded(picture(300, 3000).get(), "jpeg"));
  startHost();
  const auto wide = rendered("wide.png");
  EXPECT_EQ(gdk_pixbuf_get_width(wide.get()), 512);
  EXPECT_EQ(gdk_pixbuf_get_height(wide.get()), 256);
  const auto tall = rendered("tall.jpg");
  EXPECT_EQ(gdk_pixbuf_get_width(tall.get()), 51);
  EXPECT_EQ(gdk_pixbuf_get_height(tall.get()), 512);
}

TEST_F(HostThumbnailTest, SmallPicturesKeepTheirSize) {
  makeFile("small.png", encoded(picture(20, 10).get(), "png"));
  startHost();
  EXPECT_EQ(gdk_pixbuf_get_width(rendered("small.png").get()), 20);
}

TEST_F(HostThumbnailTest, TheOrientationTagIsApplied) {
  makeFile("photo.jpg", rotatedJpeg(1000, 500, 6));
  startHost();
  const auto photo = rendered("photo.jpg");
  EXPECT_EQ(gdk_pixbuf_get_width(photo.get()), 256);
  EXPECT_EQ(gdk_pixbuf_get_height(photo.get()), 512);
  // Turned clockwise: what was left is on top.
  const guchar* top = gdk_pixbuf_read_pixels(photo.get());
  EXPECT_GT(int{top[0]}, 200);
  EXPECT_LT(int{top[2]}, 60);
}

TEST_F(HostThumbnailTest, DrawingsAreRendered) {
  makeFile("drawing.svg", R"(<svg xmlns="http://www.w3.org/2000/svg" width="80" height="40">)"
                          R"(<rect width="80" height="40" fill="red"/></svg>)");
  startHost();
  EXPECT_EQ(gdk_pixbuf_get_height(rendered("drawing.svg").get()), 40);
}

TEST_F(HostThumbnailTest, GifAndWebpAreRendered) {
  // One transparent pixel each.
  makeFile("dot.gif",
           std::string("GIF89a\x01\0\x01\0\x80\0\0\0\0\0\xFF\xFF\xFF!\xF9\x04\x01\0\0\0\0,\0\0"
                       "\0\0\x01\0\x01\0\0\x02\x01"
                       "D\0;",
                       42));
  makeFile("dot.webp",
           std::string("RIFF\x1A\0\0\0WEBPVP8L\x0D\0\0\0/\0\0\0\x10\x07\x10\x11\x11\x88\x88\xFE\x07"
                       "\0",
                       34));
  startHost();
  EXPECT_EQ(gdk_pixbuf_get_width(rendered("dot.gif").get()), 1);
  EXPECT_EQ(gdk_pixbuf_get_width(rendered("dot.webp").get()), 1);
}

TEST_F(HostThumbnailTest, WhatIsNoPictureHasNone) {
  makeFile("text.png", "this is no picture");
  makeFile("empty.png", "");
  makeFile("cut.png", encoded(picture(200, 200).get(), "png").substr(0, 20));
  startHost();
  EXPECT_EQ(kindOf(thumbnail("text.png")), "unsupported");
  EXPECT_EQ(kindOf(thumbnail("empty.png")), "unsupported");
  EXPECT_EQ(kindOf(thumbnail("cut.png")), "unsupported");
}

TEST_F(HostThumbnailTest, PicturesThatWouldEatTheMemoryAreRefused) {
  makeFile("bomb.svg", R"(<svg xmlns="http://www.w3.org/2000/svg" width="30000" height="30000"/>)");
  startHost();
  EXPECT_EQ(kindOf(thumbnail("bomb.svg")), "unsupported");
}

TEST_F(HostThumbnailTest, EachVersionIsRenderedOnce) {
  makeFile("a.png", encoded(picture(10, 10).get(), "png"));
  startHost();
  const std::string first = thumbnail("a.png")["path"];
  const auto written = fs::last_write_time(first);
  EXPECT_EQ(thumbnail("a.png")["path"], first);
  EXPECT_EQ(fs::last_write_time(first), written);

  const std::string path = stage(encoded(picture(30, 30).get(), "png"));
  ask({{"op", "modify"}, {"ulid", row("a.png").ulid}, {"is_folder", false}, {"path", path}});
  EXPECT_EQ(gdk_pixbuf_get_width(rendered("a.png").get()), 30);
  EXPECT_FALSE(fs::exists(first));
}

}  // namespace
}  // namespace tulo::test
