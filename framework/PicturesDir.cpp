#include "framework/PicturesDir.h"

#include <cstdlib>

namespace {

// Empty: no ThreadPicturesDir on this thread.
thread_local std::string tThreadDirectory;

}  // namespace

std::string PicturesPath(const char* fileName) {
  std::string path = tThreadDirectory;
  if (path.empty()) {
    const char* directory = std::getenv("QLM_PICTURES_DIR");
    path = (directory != nullptr && directory[0] != '\0') ? directory : "/sdcard/Pictures/";
  }
  if (path.back() != '/') path += '/';
  return path + fileName;
}

ThreadPicturesDir::ThreadPicturesDir(const std::string& directory) : mPrevious(tThreadDirectory) {
  tThreadDirectory = directory;
}

ThreadPicturesDir::~ThreadPicturesDir() { tThreadDirectory = mPrevious; }
