#include "station/RunOutputs.h"

#include "tests/support/TestPrelude.h"
#include "tests/support/StationErrorOf.h"

#include <filesystem>
#include <new>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

size_t EntriesIn(const std::string& directory) {
  return static_cast<size_t>(std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
}

}  // namespace

// Files appear only on commit and none on failure; the longest name a directory entry may have still fits.
TEST(RunOutputs, WritesAtomically) {
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

// Each thread's outputs wait for that thread's commit or discard: one thread's failure leaves the other's files,
// and its library files are checked in its own folder.
TEST(RunOutputs, EachThreadRunsItsOwn) {
  TempDir dir;
  std::thread discarding([&] {
    StartLibraryRun(dir.File("a"));
    WriteBytesAtomically(dir.File("a.txt"), "a", 1);
    LibraryFile("missing.txt");
    EXPECT_THROW(CheckLibraryFiles(), StorageError);
    DiscardOutputs();
  });
  WriteBytesAtomically(dir.File("b.txt"), "b", 1);
  StartLibraryRun(dir.Path());
  discarding.join();
  CheckLibraryFiles();
  CommitOutputs();
  EXPECT_FALSE(FileExists(dir.File("a.txt")));
  EXPECT_EQ(ReadFile(dir.File("b.txt")), "b");
  EXPECT_EQ(ChoosePicturesDir(dir.File("chosen")), dir.File("chosen"));
  EXPECT_TRUE(fs::is_directory(dir.File("chosen")));
}

// The option wins over the environment and is exported; a library file counts only when this run wrote it as a
// regular file, not empty, with the bytes expected of it, and a log only when this run made it grow.
TEST(RunOutputs, PicturesDirAndLibraryFiles) {
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
  WriteFile(dir.File("log.txt"), "earlier lines\n");
  WriteFile(dir.File("quiet.txt"), "earlier lines\n");
  WriteFile(AppendedLibraryFile("log.txt"), "earlier lines\nthis run's line\n");
  WriteFile(LibraryFile("fresh.txt"), "now");
  WriteFile(LibraryFile("exact.txt", "all of it\n"), "all of it\n");
  CheckLibraryFiles();
  AppendedLibraryFile("quiet.txt");
  WriteFile(LibraryFile("empty.txt"), "");
  WriteFile(LibraryFile("cut.txt", "all of it\n"), "all of");
  for (const char* name : {"stale.txt", "missing.txt", "folder.txt"}) LibraryFile(name);
  try {
    CheckLibraryFiles();
    ADD_FAILURE() << "no StorageError";
  } catch (const StorageError& error) {
    EXPECT_EQ(std::string(error.what()),
              dir.Path() + ": the library did not write quiet.txt empty.txt cut.txt stale.txt missing.txt folder.txt");
  }
}

// A commit that cannot put a later file in place puts back what the earlier ones replaced and leaves no temporary; an
// output that is a symbolic link writes the file it points to and the link stays.
TEST(RunOutputs, FailedCommitRestoresAndLinksAreFollowed) {
  TempDir dir;
  WriteFile(dir.File("first.txt"), "earlier first");
  fs::create_directory(dir.File("sub"));
  WriteBytesAtomically(dir.File("first.txt"), "new first", 9);
  WriteBytesAtomically(dir.File("sub/second.txt"), "new second", 10);
  fs::rename(dir.File("sub"), dir.File("moved"));  // the second file's temporary goes with its folder
  EXPECT_THROW(CommitOutputs(), StationError);
  EXPECT_EQ(ReadFile(dir.File("first.txt")), "earlier first");
  EXPECT_EQ(EntriesIn(dir.Path()), 2u);  // first.txt and the moved folder

  fs::create_directory(dir.File("target"));
  fs::create_symlink("target/real.json", dir.File("link.json"));
  WriteJsonAtomically(dir.File("link.json"), nlohmann::json{{"code", 2}});
  CommitOutputs();
  EXPECT_TRUE(fs::is_symlink(dir.File("link.json")));
  EXPECT_EQ(ReadFile(dir.File("target/real.json")), "{\n  \"code\": 2\n}\n");
}

// Before a run: one path twice (also through a link), an output over an input or in an input folder, an input in an
// output folder, a file over a folder and the reverse; outputs in distinct places pass.
TEST(RunOutputs, CollidingRunFilesAreRefusedBeforeTheRun) {
  TempDir dir;
  fs::create_directory(dir.File("in"));
  WriteFile(dir.File("in/a.png"), "");
  WriteFile(dir.File("file.txt"), "");
  fs::create_symlink(dir.File("x.json"), dir.File("alias.json"));
  const std::pair<RunFiles, std::string> refused[] = {
      {{{}, {}, {dir.File("x.json"), dir.File("alias.json")}, {}}, dir.File("alias.json") + ": named twice as an output"},
      {{{dir.File("in/a.png")}, {}, {dir.File("in/../in/a.png")}, {}}, dir.File("in/../in/a.png") + ": is also an input of this run"},
      {{{}, {dir.File("in")}, {dir.File("in/out.json")}, {}}, dir.File("in/out.json") + ": inside the input folder " + dir.File("in")},
      {{{dir.File("in/a.png")}, {}, {}, {dir.File("in")}}, dir.File("in") + ": holds the input " + dir.File("in/a.png")},
      {{{}, {}, {dir.File("in")}, {}}, dir.File("in") + ": is a folder, not a file"},
      {{{}, {}, {}, {dir.File("file.txt")}}, dir.File("file.txt") + ": is a file, not a folder"},
      {{{}, {}, {dir.File("r/report.json")}, {dir.File("r")}}, dir.File("r/report.json") + ": inside the output folder " + dir.File("r")}};
  for (const auto& [files, message] : refused) {
    EXPECT_EQ(StationErrorOf([&] { CheckRunFiles(files); }), message);
  }
  EXPECT_NO_THROW(CheckRunFiles({{dir.File("in/a.png")}, {dir.File("in")}, {dir.File("x.json"), "", "/dev/stdout"}, {dir.File("report")}}));
}
