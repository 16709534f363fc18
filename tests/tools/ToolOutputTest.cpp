#include "tools/ToolOutput.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

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

TEST(WriteAtomically, LeavesNoFileBehindOnFailure) {
  TempDir dir;
  const std::string path = dir.File("out.bin");
  EXPECT_THROW(WriteAtomically(path,
                               [](const std::string& temporary) {
                                 WriteFile(temporary, "partial");
                                 return false;
                               }),
               ToolError);
  EXPECT_TRUE(fs::is_empty(dir.Path()));
  EXPECT_THROW(WriteBytesAtomically(dir.File("no/such/dir/out.bin"), "x", 1), ToolError);
  EXPECT_TRUE(fs::is_empty(dir.Path()));

  WriteBytesAtomically(path, "abc", 3);
  EXPECT_EQ(ReadFile(path), "abc");
  WriteJsonAtomically(dir.File("out.json"), nlohmann::json{{"code", 1}});
  EXPECT_EQ(ReadFile(dir.File("out.json")), "{\n  \"code\": 1\n}\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.Path()), fs::directory_iterator()), 2);
}
