// Where the library writes its diagnostic and result files: the directory
// set for the calling thread by a ThreadPicturesDir, else the one named by
// QLM_PICTURES_DIR when it is set and not empty (read at every call), else
// "/sdcard/Pictures/".
#pragma once

#include <string>

// Full path of fileName inside the pictures directory.
std::string PicturesPath(const char* fileName);

// While it lives, the calling thread's library files go to directory
// (QLM_PICTURES_DIR is neither read nor changed), so threads that run
// engines of their own at once keep their files apart. Restores the
// thread's earlier directory when it ends.
class ThreadPicturesDir {
 public:
  explicit ThreadPicturesDir(const std::string& directory);
  ~ThreadPicturesDir();
  ThreadPicturesDir(const ThreadPicturesDir&) = delete;
  ThreadPicturesDir& operator=(const ThreadPicturesDir&) = delete;

 private:
  const std::string mDirectory;
  const std::string* const mPrevious;
};
