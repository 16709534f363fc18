#include "tools/ToolOutput.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <new>

#include <fcntl.h>
#include <sys/stat.h>

#include "tests/support/TestFiles.h"
#include "tools/ToolInput.h"

namespace fs = std::filesystem;

TEST(SelectPicturesDir, OptionWinsOverEnvironmentAndIsExported) {
  TempDir dir;
  const std::string option = dir.File("from-option/nested");
  EXPECT_EQ(SelectPicturesDir(option), option);
  EXPECT_TRUE(fs::is_directory(option));
  EXPECT_EQ(std::string(std::getenv("QLM_PICTURES_DIR")), option);

  setenv("QLM_PICTURES_DIR", dir.File("from-env").c_str(), 1);
  EXPECT_EQ(SelectPicturesDir(""), dir.File("from-env"));
  EXPECT_TRUE(fs::is_directory(dir.File("from-env")));
}

size_t EntriesIn(const std::string& directory) {
  return static_cast<size_t>(std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
}

TEST(WriteAtomically, FilesAppearOnlyOnCommitAndNoneOnFailure) {
  TempDir dir;
  const std::string path = dir.File("out.bin");
  EXPECT_THROW(WriteAtomically(path,
                               [](const std::string& temporary) {
                                 WriteFile(temporary, "partial");
                                 return false;
                               }),
               ToolError);
  EXPECT_THROW(WriteAtomically(path, [](const std::string&) -> bool { throw std::bad_alloc(); }), std::bad_alloc);
  EXPECT_THROW(WriteBytesAtomically(dir.File("no/such/dir/out.bin"), "x", 1), ToolError);
  EXPECT_EQ(EntriesIn(dir.Path()), 0u);

  // The longest name a directory entry may have still fits.
  const std::string longName = dir.File(std::string(251, 'n') + ".bin");
  WriteBytesAtomically(path, "abc", 3);
  WriteJsonAtomically(longName, nlohmann::json{{"code", 1}});
  EXPECT_FALSE(FileExists(path));
  DiscardOutputs();
  EXPECT_EQ(EntriesIn(dir.Path()), 0u);

  WriteBytesAtomically(path, "abc", 3);
  WriteJsonAtomically(longName, nlohmann::json{{"code", 1}});
  CommitOutputs();
  EXPECT_EQ(ReadFile(path), "abc");
  EXPECT_EQ(ReadFile(longName), "{\n  \"code\": 1\n}\n");
  EXPECT_EQ(EntriesIn(dir.Path()), 2u);
}

TEST(CheckLibraryFiles, NamesTheDirectoryAndTheFilesNotWrittenByThisRun) {
  TempDir dir;
  WriteFile(dir.File("stale.txt"), "from an earlier run");
  const timespec past[2] = {{1000, 0}, {1000, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, dir.File("stale.txt").c_str(), past, 0), 0);
  fs::create_directory(dir.File("folder.txt"));
  SelectPicturesDir(dir.Path());
  WriteFile(LibraryFile("fresh.txt"), "now");
  CheckLibraryFiles();
  LibraryFile("stale.txt");
  LibraryFile("missing.txt");
  LibraryFile("folder.txt");
  try {
    CheckLibraryFiles();
    ADD_FAILURE() << "no MissingLibraryFiles";
  } catch (const MissingLibraryFiles& error) {
    EXPECT_EQ(std::string(error.what()), dir.Path() + ": the library did not write stale.txt missing.txt folder.txt");
  }
}
