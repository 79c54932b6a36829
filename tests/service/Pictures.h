// Pictures for the tests of thumbnails.
#pragma once

#include <map>
#include <string>

namespace tulo::test {

// A picture of one colour in the given kind ("png", "jpeg").
std::string picture(int width, int height, const std::string& kind = "png");

// The same, lying on its side: its bytes tell to show it turned by a quarter.
std::string turnedPicture(int width, int height);

// Width, height and texts of a PNG file as the desktop reads them; zeros when it cannot.
struct ReadPicture {
  int width = 0;
  int height = 0;
  std::map<std::string, std::string> texts;
};
ReadPicture readPicture(const std::string& path);

}  // namespace tulo::test
