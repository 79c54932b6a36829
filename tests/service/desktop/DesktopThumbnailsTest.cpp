#include "service/desktop/DesktopThumbnails.h"

#include <sys/stat.h>

#include <cstdlib>

#include "service/desktop/PNGText.h"
#include "tests/service/Pictures.h"
#include "tests/service/support/Times.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;
using Outcome = DesktopThumbnails::Outcome;

class DesktopThumbnailsTest : public testing::Test {
 protected:
  std::string directory() const { return folder_.file("cache/thumbnails"); }

  // Everything below the cache, folders and files, as paths relative to it.
  std::vector<std::string> names() const {
    std::vector<std::string> result;
    if (!fs::exists(directory())) return result;
    for (const auto& entry : fs::recursive_directory_iterator(directory())) {
      result.push_back(fs::relative(entry.path(), directory()));
    }
    std::sort(result.begin(), result.end());
    return result;
  }

  std::string in(const char* size, const std::string& name) const {
    return directory() + "/" + size + "/" + name;
  }

  TemporaryDirectory folder_;
  DesktopThumbnails thumbnails_{directory()};
  const ThumbnailOriginal original_{"/home/jens/photos/me.png", atSecond(1'700'000'000), 4321};
  // The name that the desktops' common documentation gives for this file.
  const std::string name_ = "c6ee772d9e49320e97ec29a7eb5b1697.png";
};

TEST_F(DesktopThumbnailsTest, WritesBothSizesUnderTheDesktopsName) {
  EXPECT_EQ(thumbnails_.store(original_, picture(400, 200)), Outcome::written);
  EXPECT_THAT(names(),
              testing::ElementsAre("large", "large/" + name_, "normal", "normal/" + name_));
  const ReadPicture normal = readPicture(in("normal", name_));
  EXPECT_EQ(normal.width, 128);
  EXPECT_EQ(normal.height, 64);
  const ReadPicture large = readPicture(in("large", name_));
  EXPECT_EQ(large.width, 256);
  EXPECT_EQ(large.height, 128);
}

TEST_F(DesktopThumbnailsTest, SaysWhichFileAtWhichTime) {
  ASSERT_EQ(thumbnails_.store(original_, picture(400, 200)), Outcome::written);
  const std::map<std::string, std::string> expected = {
      {"Thumb::URI", "file:///home/jens/photos/me.png"},
      {"Thumb::MTime", "1700000000"},
      {"Thumb::Size", "4321"},
      {"Software", "TuloFileProvider"}};
  for (const char* size : {"normal", "large"}) {
    EXPECT_EQ(readPicture(in(size, name_)).texts, expected);
    EXPECT_EQ(pngTexts(in(size, name_)), expected);
  }
}

TEST_F(DesktopThumbnailsTest, IsForItsUserAlone) {
  const mode_t before = umask(0);
  const Outcome outcome = thumbnails_.store(original_, picture(400, 200));
  umask(before);
  ASSERT_EQ(outcome, Outcome::written);
  const auto mode = [](const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
  };
  EXPECT_EQ(mode(directory()), 0700U);
  EXPECT_EQ(mode(directory() + "/normal"), 0700U);
  EXPECT_EQ(mode(directory() + "/large"), 0700U);
  EXPECT_EQ(mode(in("normal", name_)), 0600U);
  EXPECT_EQ(mode(in("large", name_)), 0600U);
}

TEST_F(DesktopThumbnailsTest, NeverEnlarges) {
  ASSERT_EQ(thumbnails_.store(original_, picture(160, 40)), Outcome::written);
  EXPECT_EQ(readPicture(in("normal", name_)).width, 128);
  EXPECT_EQ(readPicture(in("normal", name_)).height, 32);
  EXPECT_EQ(readPicture(in("large", name_)).width, 160);
  EXPECT_EQ(readPicture(in("large", name_)).height, 40);
}

TEST_F(DesktopThumbnailsTest, KeepsAThinPictureVisible) {
  ASSERT_EQ(thumbnails_.store(original_, picture(2000, 1)), Outcome::written);
  EXPECT_EQ(readPicture(in("normal", name_)).width, 128);
  EXPECT_EQ(readPicture(in("normal", name_)).height, 1);
}

TEST_F(DesktopThumbnailsTest, ReadsOtherKinds) {
  EXPECT_EQ(thumbnails_.store(original_, picture(300, 300, "jpeg")), Outcome::written);
  EXPECT_EQ(readPicture(in("normal", name_)).width, 128);
}

TEST_F(DesktopThumbnailsTest, TurnsAPictureTheRightWayUp) {
  ASSERT_EQ(thumbnails_.store(original_, turnedPicture(400, 200)), Outcome::written);
  EXPECT_EQ(readPicture(in("normal", name_)).width, 64);
  EXPECT_EQ(readPicture(in("normal", name_)).height, 128);
}

TEST_F(DesktopThumbnailsTest, HasWhatItWroteForThatTimeOnly) {
  EXPECT_FALSE(thumbnails_.has(original_));
  ASSERT_EQ(thumbnails_.store(original_, picture(400, 200)), Outcome::written);
  EXPECT_TRUE(thumbnails_.has(original_));
  EXPECT_FALSE(thumbnails_.has({original_.path, original_.modified + seconds(1), original_.size}));
  EXPECT_FALSE(thumbnails_.has({"/home/jens/photos/you.png", original_.modified, 1}));
  fs::remove(in("large", name_));
  EXPECT_FALSE(thumbnails_.has(original_));
}

TEST_F(DesktopThumbnailsTest, ReplacesAnOlderOne) {
  ASSERT_EQ(thumbnails_.store(original_, picture(400, 200)), Outcome::written);
  const ThumbnailOriginal later{original_.path, original_.modified + seconds(60), 5};
  ASSERT_EQ(thumbnails_.store(later, picture(200, 400)), Outcome::written);
  EXPECT_TRUE(thumbnails_.has(later));
  EXPECT_EQ(readPicture(in("normal", name_)).height, 128);
  EXPECT_EQ(names().size(), 4U);
}

struct BadImage {
  const char* name;
  std::string bytes;
};

void PrintTo(const BadImage& image, std::ostream* out) {
  *out << image.name;
}

class BadImageTest : public DesktopThumbnailsTest, public testing::WithParamInterface<BadImage> {};

TEST_P(BadImageTest, WritesNothing) {
  EXPECT_EQ(thumbnails_.store(original_, GetParam().bytes), Outcome::notAPicture);
  EXPECT_THAT(names(), testing::IsEmpty());
}

// A well-formed beginning of a PNG file that announces 60,000 by 60,000 pixels.
const std::string kHuge(
    "\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\xea\x60\0\0\xea\x60\x08\x02\0\0\0\xaa\x48\xe6\x44", 33);

INSTANTIATE_TEST_SUITE_P(Bytes, BadImageTest,
                         testing::Values(BadImage{"Empty", ""}, BadImage{"Text", "not a picture"},
                                         BadImage{"CutPNG", picture(400, 200).substr(0, 200)},
                                         BadImage{"CutJPEG",
                                                  picture(400, 400, "jpeg").substr(0, 700)},
                                         BadImage{"SignatureAlone", "\x89PNG\r\n\x1a\n"},
                                         BadImage{"TooManyPixels", kHuge}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(DesktopThumbnailsTest, RefusesARelativePath) {
  EXPECT_EQ(thumbnails_.store({"photos/me.png", atSecond(1), 1}, picture(10, 10)), Outcome::failed);
  EXPECT_FALSE(thumbnails_.has({"photos/me.png", atSecond(1), 1}));
  EXPECT_THAT(names(), testing::IsEmpty());
}

TEST_F(DesktopThumbnailsTest, SaysWhenTheCacheCannotBeWritten) {
  writeFile(folder_.file("cache"), "a file, where a folder should be");
  EXPECT_EQ(thumbnails_.store(original_, picture(10, 10)), Outcome::failed);
}

TEST_F(DesktopThumbnailsTest, LeavesNothingBehindWhenTheNameIsTaken) {
  fs::create_directories(in("normal", name_) + "/inside");
  EXPECT_EQ(thumbnails_.store(original_, picture(10, 10)), Outcome::failed);
  EXPECT_THAT(names(),
              testing::ElementsAre("normal", "normal/" + name_, "normal/" + name_ + "/inside"));
}

struct Spelling {
  const char* name;
  const char* path;
  const char* uri;
};

void PrintTo(const Spelling& spelling, std::ostream* out) {
  *out << spelling.path;
}

class SpellingTest : public testing::TestWithParam<Spelling> {};

TEST_P(SpellingTest, IsTheDesktops) {
  EXPECT_EQ(DesktopThumbnails::uri(GetParam().path), GetParam().uri);
}

INSTANTIATE_TEST_SUITE_P(Paths, SpellingTest,
                         testing::Values(Spelling{"Plain", "/a/b.jpg", "file:///a/b.jpg"},
                                         Spelling{"Blank", "/a b", "file:///a%20b"},
                                         Spelling{"Percent", "/100%.jpg", "file:///100%25.jpg"},
                                         Spelling{"HashAndQuestionMark", "/a#b?c",
                                                  "file:///a%23b%3Fc"},
                                         Spelling{"KeptMarks", "/a(b)'c!~d&e=f+g,h:i@j$k*l",
                                                  "file:///a(b)'c!~d&e=f+g,h:i@j$k*l"},
                                         Spelling{"Brackets", "/[a];b", "file:///%5Ba%5D%3Bb"},
                                         Spelling{"Umlaut", "/gr\u00fcn", "file:///gr%C3%BCn"},
                                         Spelling{"NotText", "/\xff\xfe", "file:///%FF%FE"},
                                         Spelling{"NewLine", "/a\nb", "file:///a%0Ab"}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(UserDirectoryTest, FollowsTheEnvironment) {
  const char* cacheBefore = std::getenv("XDG_CACHE_HOME");
  const std::string saved = cacheBefore != nullptr ? cacheBefore : "";
  setenv("XDG_CACHE_HOME", "/elsewhere", 1);
  EXPECT_EQ(DesktopThumbnails::userDirectory(), "/elsewhere/thumbnails");
  setenv("XDG_CACHE_HOME", "relative", 1);
  const std::string home = std::getenv("HOME") != nullptr ? std::getenv("HOME") : "";
  setenv("HOME", "/home/someone", 1);
  EXPECT_EQ(DesktopThumbnails::userDirectory(), "/home/someone/.cache/thumbnails");
  if (home.empty()) {
    unsetenv("HOME");
  } else {
    setenv("HOME", home.c_str(), 1);
  }
  if (cacheBefore == nullptr) {
    unsetenv("XDG_CACHE_HOME");
  } else {
    setenv("XDG_CACHE_HOME", saved.c_str(), 1);
  }
}

}  // namespace
}  // namespace tulo::test
