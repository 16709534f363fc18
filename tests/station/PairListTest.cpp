#include "station/PairList.h"

#include "tests/support/TestPrelude.h"

// The messages of bad lists and folders are checked through the tool (QlmCalib.BadInputs...). A list saved with a
// byte-order mark reads its first pair.
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
  WriteFile(dir.File("pairs.txt"), "\xEF\xBB\xBFm1.png\ts1.png\n# station 3\n\n  /abs/m2.png   s2.png  \n");
  EXPECT_EQ(ChartImagePaths({}, "", dir.File("pairs.txt")),
            (std::vector<std::string>{dir.File("m1.png"), dir.File("s1.png"), "/abs/m2.png", dir.File("s2.png")}));
  EXPECT_EQ(ChartImagePaths({"a.png", "b.png"}, "", ""), (std::vector<std::string>{"a.png", "b.png"}));
}
