#include "cli/demo/Sample.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace tulo::cli::demo {
namespace {

constexpr int monthsOfYear = 12;
constexpr int firstYear = 2019;
constexpr int years = 6;

struct Color {
  double red;
  double green;
  double blue;
};

Color blend(const Color& a, const Color& b, double share) {
  const auto mix = [share](double x, double y) { return x + (y - x) * share; };
  return {mix(a.red, b.red), mix(a.green, b.green), mix(a.blue, b.blue)};
}

// A low sun over a horizon.
Color sunriseAt(double x, double y) {
  const Color night{40, 30, 90};
  const Color dawn{255, 150, 70};
  const Color sea{20, 60, 110};
  if (y > 0.7) return blend(blend(dawn, sea, 0.6), sea, (y - 0.7) / 0.3);
  if (std::hypot(x - 0.5, (y - 0.66) * 0.6) < 0.08) return {255, 235, 170};
  return blend(night, dawn, y / 0.7);
}

// A valley between two hills.
Color valleyAt(double x, double y) {
  const double far = 0.45 + 0.1 * std::sin(x * 9);
  const double near = 0.7 + 0.12 * std::cos(x * 5 + 1);
  if (y > near) return {40, 110, 50};
  if (y > far) return {90, 150, 110};
  return blend({90, 160, 230}, {220, 235, 250}, y / far);
}

class Writer {
 public:
  Writer(std::filesystem::path root, const std::function<void()>& betweenFiles)
      : root_(std::move(root)), betweenFiles_(betweenFiles) {}

  void folder(const std::string& name) {
    std::filesystem::create_directory(root_ / name);
    ++counts_.folders;
  }

  void file(const std::string& name, std::string_view contents) {
    std::ofstream stream(root_ / name, std::ios::binary);
    stream.write(contents.data(), static_cast<std::streamsize>(contents.size()));
    stream.close();
    if (!stream) throw std::runtime_error("cannot write " + (root_ / name).string());
    written(name);
  }

  // A picture of `width` times `height` points, each coloured by its place (0 to 1 both ways).
  void picture(const std::string& name, const char* format, int width, int height,
               Color (*colorAt)(double, double)) {
    const std::unique_ptr<GdkPixbuf, decltype(&g_object_unref)> image(
        gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, width, height), &g_object_unref);
    if (!image) throw std::runtime_error("no memory for the picture " + name);
    const auto stride = static_cast<std::size_t>(gdk_pixbuf_get_rowstride(image.get()));
    guchar* points = gdk_pixbuf_get_pixels(image.get());
    for (int y = 0; y < height; ++y) {
      guchar* point = points + static_cast<std::size_t>(y) * stride;
      for (int x = 0; x < width; ++x) {
        const Color color = colorAt(double(x) / width, double(y) / height);
        for (const double part : {color.red, color.green, color.blue})
          *point++ = static_cast<guchar>(part);
      }
    }
    save(*image, name, format);
  }

  const SampleCounts& counts() const { return counts_; }

 private:
  void save(GdkPixbuf& image, const std::string& name, const char* format) {
    GError* error = nullptr;
    if (gdk_pixbuf_save(&image, (root_ / name).c_str(), format, &error, nullptr) == FALSE) {
      const std::unique_ptr<GError, decltype(&g_error_free)> owner(error, &g_error_free);
      throw std::runtime_error("cannot write the picture " + name + ": " + error->message);
    }
    written(name);
  }

  void written(const std::string& name) {
    ++counts_.files;
    counts_.bytes += static_cast<std::int64_t>(std::filesystem::file_size(root_ / name));
    betweenFiles_();
  }

  std::filesystem::path root_;
  const std::function<void()>& betweenFiles_;
  SampleCounts counts_;
};

// Bytes that do not compress and do not repeat, the same ones each time.
std::string noise(std::size_t size) {
  std::string bytes(size, '\0');
  std::uint64_t state = 0x9E3779B97F4A7C15U;
  for (char& byte : bytes) {
    state ^= state << 13U;
    state ^= state >> 7U;
    state ^= state << 17U;
    byte = static_cast<char>(state >> 32U);
  }
  return bytes;
}

void makeDocuments(Writer& writer) {
  writer.folder(sample::documents);
  writer.file(sample::report, "%PDF-1.4\n% The yearly report.\n%%EOF\n");
  writer.file("Documents/report.pdf", "%PDF-1.4\n% Another report, in lower case.\n%%EOF\n");
  // One name in two spellings: with the accented letter, and with the letter and an accent.
  writer.file("Documents/Caf\u00E9.md", "# Caf\u00E9\n\nOpen from 8 to 18.\n");
  writer.file("Documents/Cafe\u0301.md", "# Cafe\u0301\n\nClosed on Mondays.\n");
  writer.file(sample::budget, "item,amount\nrent,900\nfood,420\ntrain,75\n");
  writer.file(sample::contract,
              "Both parties agree to leave this file alone while it is locked.\n");
  writer.folder("Documents/Letters");
  writer.file(sample::letter, "Dear Sir or Madam,\n\nThe heating is off.\n");
}

void makePictures(Writer& writer) {
  writer.folder("Pictures");
  writer.picture(sample::picture, "png", 1200, 800, sunriseAt);
  writer.picture("Pictures/Valley.jpg", "jpeg", 1600, 900, valleyAt);
  writer.file(sample::drawing,
              "<svg xmlns='http://www.w3.org/2000/svg' width='240' height='240'>"
              "<circle cx='120' cy='120' r='110' fill='#2a6'/>"
              "<path d='M60 130 l40 40 l80 -90' stroke='#fff' stroke-width='24' fill='none'/>"
              "</svg>\n");
}

void makeMonth(Writer& writer, const std::string& folder, int files) {
  writer.folder(folder);
  for (int number = 1; number <= files; ++number) {
    std::array<char, 32> name{};
    std::snprintf(name.data(), name.size(), "/Receipt %03d.txt", number);
    writer.file(folder + name.data(),
                "Paid " + std::to_string(number * 7 % 100) + ".90, thanks.\n");
  }
}

void makeArchive(Writer& writer, int files) {
  writer.folder("Archive");
  constexpr int months = years * monthsOfYear;
  for (int month = 0; month < months; ++month) {
    const std::string year = "Archive/" + std::to_string(firstYear + month / monthsOfYear);
    if (month % monthsOfYear == 0) writer.folder(year);
    std::array<char, 8> name{};
    std::snprintf(name.data(), name.size(), "/%02d", month % monthsOfYear + 1);
    makeMonth(writer, year + name.data(), files / months + (month < files % months ? 1 : 0));
  }
}

}  // namespace

SampleCounts makeSample(const std::filesystem::path& folder, int archived,
                        const std::function<void()>& betweenFiles) {
  constexpr std::size_t videoSize = 32U << 20U;
  Writer writer(folder, betweenFiles);
  makeDocuments(writer);
  makePictures(writer);
  writer.folder("Videos");
  writer.file(sample::video, noise(videoSize));
  // A folder and a file that one folder of another system could not hold side by side.
  writer.folder("Notes");
  writer.file(sample::ideas, "- a boat\n- a longer boat\n");
  writer.file("notes", "Buy milk.\n");
  makeArchive(writer, archived);
  return writer.counts();
}

}  // namespace tulo::cli::demo
