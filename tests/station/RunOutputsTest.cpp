#include "station/RunOutputs.h"

#include "tests/support/TestPrelude.h"

#include <filesystem>
#include <new>

#include <fcntl.h>
#include <sys/stat.h>

#include "tools/ToolInput.h"

namespace fs = std::filesystem;

namespace {

size_t EntriesIn(const std::string& directory) {
  return static_cast<size_t>(std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
}

}  // namespace

// Files appear only on commit and none on failure; the longest name a directory entry may have still fits.
TEST(ToolOutput, WritesAtomically) {
  TempDir dir;
  const std::string path = dir.File("out.bin"), longName = dir.File(std::string(251, 'n') + ".bin");
  EXPECT_THROW(WriteAtomically(path, [](const std::string& temporary) { return WriteFile(temporary, "x"), false; }),
               StationError);
  EXPECT_THROW(WriteAtomically(path, [](const std::string&) -> bool { throw std::bad_alloc(); }), std::bad_alloc);
  EXPECT_THROW(WriteBytesAtomically(dir.File("no/such/dir/out.bin"), "x", 1), StationError);
  EXPECT_EQ(EntriesIn(dir.Path()), 0u);
  for (bool commit : {false, true}) {
    WriteBytesAtomically(path, "abc", 3);
    WriteJsonAtomically(longName, nlohmann::json{{"code", 1}});
    EXPECT_FALSE(FileExists(path));
    commit ? CommitOutputs() : DiscardOutputs();
    EXPECT_EQ(EntriesIn(dir.Path()), commit ? 2u : 0u);
  }
  EXPECT_EQ(ReadFile(path), "abc");
  EXPECT_EQ(ReadFile(longName), "{\n  \"code\": 1\n}\n");
}

// The option wins over the environment and is exported; a library file counts only when this run wrote it as a
// regular file.
TEST(ToolOutput, PicturesDirAndLibraryFiles) {
  TempDir dir;
  EXPECT_EQ(SelectPicturesDir(dir.File("option/nested")), dir.File("option/nested"));
  EXPECT_TRUE(fs::is_directory(dir.File("option/nested")));
  EXPECT_EQ(std::string(std::getenv("QLM_PICTURES_DIR")), dir.File("option/nested"));
  setenv("QLM_PICTURES_DIR", dir.Path().c_str(), 1);
  EXPECT_EQ(SelectPicturesDir(""), dir.Path());
  WriteFile(dir.File("stale.txt"), "from an earlier run");
  const timespec past[2] = {{1000, 0}, {1000, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, dir.File("stale.txt").c_str(), past, 0), 0);
  fs::create_directory(dir.File("folder.txt"));
  WriteFile(LibraryFile("fresh.txt"), "now");
  CheckLibraryFiles();
  for (const char* name : {"stale.txt", "missing.txt", "folder.txt"}) LibraryFile(name);
  try {
    CheckLibraryFiles();
    ADD_FAILURE() << "no StorageError";
  } catch (const StorageError& error) {
    EXPECT_EQ(std::string(error.what()), dir.Path() + ": the library did not write stale.txt missing.txt folder.txt");
  }
}
