#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/TestFiles.h"
#include "tools/PairList.h"
#include "tests/tools/ToolErrors.h"
#include "tools/ToolInput.h"

TEST(PairList, FolderPairsInNaturalOrder) {
  TempDir dir;
  for (const char* name : {"pair_10_main.png", "pair_10_second.png", "pair_2_second.png", "pair_2_main.png",
                           "a_main.bmp", "a_second.bmp", "params.txt", "ground_truth.json"}) {
    WriteFile(dir.File(name), "");
  }
  EXPECT_EQ(PairsFromDirectory(dir.Path()),
            (std::vector<std::string>{dir.File("a_main.bmp"), dir.File("a_second.bmp"), dir.File("pair_2_main.png"),
                                      dir.File("pair_2_second.png"), dir.File("pair_10_main.png"),
                                      dir.File("pair_10_second.png")}));
  WriteFile(dir.File("b_main.png"), "");
  EXPECT_EQ(ErrorOf([&] { PairsFromDirectory(dir.Path()); }), dir.File("b_main.png") + ": no matching _second image");
  std::filesystem::remove(dir.File("b_main.png"));
  WriteFile(dir.File("c_second.jpg"), "");
  EXPECT_EQ(ErrorOf([&] { PairsFromDirectory(dir.Path()); }), dir.File("c_second.jpg") + ": no matching _main image");
  std::filesystem::create_directory(dir.File("empty"));
  EXPECT_EQ(ErrorOf([&] { PairsFromDirectory(dir.File("empty")); }),
            dir.File("empty") + ": no NAME_main / NAME_second image pair");
}

TEST(PairList, ListFileOnePairPerLine) {
  TempDir dir;
  WriteFile(dir.File("pairs.txt"), "# station 3\n\nm1.png\ts1.png\n  /abs/m2.png   s2.png  \n");
  EXPECT_EQ(PairsFromListFile(dir.File("pairs.txt")),
            (std::vector<std::string>{dir.File("m1.png"), dir.File("s1.png"), "/abs/m2.png", dir.File("s2.png")}));
  const struct {
    std::string text, message;
  } cases[] = {
      {"m1.png s1.png\nm2.png\n", ":2: expected MAIN SECOND, got 'm2.png'"},
      {"m1.png s1.png extra.png\n", ":1: expected MAIN SECOND, got 'm1.png s1.png extra.png'"},
      {"# nothing\n", ": no image pair"},
      {std::string((1 << 20) + 1, 'x'), ": 1048577 bytes, more than the 1048576 this input may hold"},
  };
  for (const auto& c : cases) {
    WriteFile(dir.File("bad.txt"), c.text);
    EXPECT_EQ(ErrorOf([&] { PairsFromListFile(dir.File("bad.txt")); }), dir.File("bad.txt") + c.message);
  }
}

TEST(PairList, ExactlyOneSourceOfPairs) {
  const std::string message = "chart: give the pairs one way: MAIN1 SECOND1 ..., --pairs-dir DIR or --pairs FILE";
  EXPECT_EQ(ErrorOf([] { ChartImagePaths({}, "", ""); }), message);
  EXPECT_EQ(ErrorOf([] { ChartImagePaths({"a.png", "b.png"}, "dir", ""); }), message);
  EXPECT_EQ(ErrorOf([] { ChartImagePaths({}, "dir", "list.txt"); }), message);
  EXPECT_EQ(ChartImagePaths({"a.png", "b.png"}, "", ""), (std::vector<std::string>{"a.png", "b.png"}));
}
