// Where the library writes its diagnostic and result files: the directory
// named by QLM_PICTURES_DIR when it is set and not empty (read at every
// call), else "/sdcard/Pictures/".
#pragma once

#include <string>

// Full path of fileName inside the pictures directory.
std::string PicturesPath(const char* fileName);
