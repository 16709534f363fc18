#include "framework/PicturesDir.h"

#include <cstdlib>

std::string PicturesPath(const char* fileName) {
  const char* directory = std::getenv("QLM_PICTURES_DIR");
  std::string path = (directory != nullptr && directory[0] != '\0') ? directory : "/sdcard/Pictures/";
  if (path.back() != '/') path += '/';
  return path + fileName;
}
