// A FILE* that closes itself: every file the library opens is opened and
// closed within one call through this handle.
#pragma once

#include <cstdio>
#include <memory>

struct FileCloser {
  void operator()(FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<FILE, FileCloser>;
