#include "tools/PairList.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/TestFiles.h"
#include "tests/tools/ToolErrors.h"

TEST(PairList, FolderPairsInNaturalOrderAndListFilesOnePairPerLine) {
  TempDir dir;
  for (const char* name : {"pair_10_main.png", "pair_10_second.png", "pair_2_second.png", "pair_2_main.png",
                           "a_main.bmp", "a_second.bmp", "params.txt", "pairs.txt"}) {
    WriteFile(dir.File(name), "");
  }
  EXPECT_EQ(ChartImagePaths({}, dir.Path(), ""),
            (std::vector<std::string>{dir.File("a_main.bmp"), dir.File("a_second.bmp"), dir.File("pair_2_main.png"),
                                      dir.File("pair_2_second.png"), dir.File("pair_10_main.png"),
                                      dir.File("pair_10_second.png")}));
  WriteFile(dir.File("pairs.txt"), "# station 3\n\nm1.png\ts1.png\n  /abs/m2.png   s2.png  \n");
  EXPECT_EQ(ChartImagePaths({}, "", dir.File("pairs.txt")),
            (std::vector<std::string>{dir.File("m1.png"), dir.File("s1.png"), "/abs/m2.png", dir.File("s2.png")}));
  EXPECT_EQ(ChartImagePaths({"a.png", "b.png"}, "", ""), (std::vector<std::string>{"a.png", "b.png"}));
}

TEST(PairList, ProblemsNameTheFileOrLine) {
  TempDir dir;
  const std::string list = dir.File("list.txt");
  const std::pair<std::string, std::string> lists[] = {
      {"m1.png s1.png\nm2.png\n", ":2: expected MAIN SECOND, got 'm2.png'"},
      {"m1.png s1.png extra.png\n", ":1: expected MAIN SECOND, got 'm1.png s1.png extra.png'"},
      {"# nothing\n", ": no image pair"},
      {std::string((1 << 20) + 1, 'x'), ": 1048577 bytes, more than the 1048576 this input may hold"},
  };
  for (const auto& [text, message] : lists) {
    WriteFile(list, text);
    EXPECT_EQ(ErrorOf([&] { PairsFromListFile(list); }), list + message);
  }
  WriteFile(dir.File("b_main.png"), "");
  EXPECT_EQ(ErrorOf([&] { PairsFromDirectory(dir.Path()); }), dir.File("b_main.png") + ": no matching _second image");
  std::filesystem::rename(dir.File("b_main.png"), dir.File("b_second.png"));
  EXPECT_EQ(ErrorOf([&] { PairsFromDirectory(dir.Path()); }), dir.File("b_second.png") + ": no matching _main image");
  std::filesystem::create_directory(dir.File("empty"));
  EXPECT_EQ(ErrorOf([&] { PairsFromDirectory(dir.File("empty")); }),
            dir.File("empty") + ": no NAME_main / NAME_second image pair");
  const std::string oneWay = "chart: give the pairs one way: MAIN1 SECOND1 ..., --pairs-dir DIR or --pairs FILE";
  EXPECT_EQ(ErrorOf([] { ChartImagePaths({}, "", ""); }), oneWay);
  EXPECT_EQ(ErrorOf([] { ChartImagePaths({"a.png", "b.png"}, "dir", ""); }), oneWay);
  EXPECT_EQ(ErrorOf([] { ChartImagePaths({}, "dir", "list.txt"); }), oneWay);
}
