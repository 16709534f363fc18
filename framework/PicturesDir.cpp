#include "framework/PicturesDir.h"

#include <cstdlib>

namespace {

// The innermost ThreadPicturesDir's folder on this thread, or null. A plain
// pointer on purpose: a thread-local with a destructor would keep the shared
// library from ever being unloaded.
thread_local const std::string* tThreadDirectory = nullptr;

}  // namespace

std::string PicturesPath(const char* fileName) {
  std::string path;
  if (tThreadDirectory != nullptr) {
    path = *tThreadDirectory;
  } else {
    const char* directory = std::getenv("QLM_PICTURES_DIR");
    path = (directory != nullptr && directory[0] != '\0') ? directory : "/sdcard/Pictures/";
  }
  if (path.empty() || path.back() != '/') path += '/';
  return path + fileName;
}

ThreadPicturesDir::ThreadPicturesDir(const std::string& directory)
    : mDirectory(directory), mPrevious(tThreadDirectory) {
  tThreadDirectory = &mDirectory;
}

ThreadPicturesDir::~ThreadPicturesDir() { tThreadDirectory = mPrevious; }
