#include "framework/PicturesDir.h"

#include <cstdlib>
#include <thread>

#include "tests/support/TestPrelude.h"

// A thread's own folder wins over QLM_PICTURES_DIR on that thread only, nests, and gives way when it ends.
TEST(PicturesDir, ThreadFolderOverridesTheEnvironmentOnItsThread) {
  setenv("QLM_PICTURES_DIR", "/env/dir", 1);
  EXPECT_EQ(PicturesPath("log.txt"), "/env/dir/log.txt");
  {
    const ThreadPicturesDir outer("/unit/a/");
    EXPECT_EQ(PicturesPath("log.txt"), "/unit/a/log.txt");
    std::string other;
    std::thread([&] { other = PicturesPath("log.txt"); }).join();
    EXPECT_EQ(other, "/env/dir/log.txt");
    {
      const ThreadPicturesDir inner("/unit/b");
      EXPECT_EQ(PicturesPath("calib_log.txt"), "/unit/b/calib_log.txt");
    }
    EXPECT_EQ(PicturesPath("log.txt"), "/unit/a/log.txt");
  }
  EXPECT_EQ(PicturesPath("log.txt"), "/env/dir/log.txt");
  unsetenv("QLM_PICTURES_DIR");
  EXPECT_EQ(PicturesPath("log.txt"), "/sdcard/Pictures/log.txt");
}
