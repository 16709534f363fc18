#include "framework/CFilter.h"

#include "tests/support/TestPrelude.h"

using namespace testing::internal;

namespace {

class SmallFilter final : public CFilter {
 public:
  explicit SmallFilter(const char* name) { SetName(name); }
  bool Initialize() override {
    return mParameterList.AddParameter("nGain", &gain, 0, 10, nullptr) && mParameterList.AddParameter("nBias", &bias, -10, 10, "offset");
  }
  int32_t gain = 1, bias = 0;
};

}  // namespace

TEST(CFilter, SavesAFileThatLoadsBack) {
  TempDir dir;
  const std::string path = dir.File("p.txt");
  SmallFilter saved("Small");
  saved.gain = 7, saved.bias = -3;
  ASSERT_EQ(SaveParametersToFile(saved, path.c_str()), 1);
  EXPECT_EQ(ReadFile(path), "\nSmall\nnGain=7;\t\tRange=[0,10] \nnBias=-3;\t\tRange=[-10,10] offset\n");
  SmallFilter loaded("Small");
  CaptureStdout();
  EXPECT_EQ(LoadParametersFromFile(loaded, path.c_str()), 1);
  EXPECT_EQ(GetCapturedStdout(), "");
  EXPECT_EQ(loaded.gain * 100 + loaded.bias, 697);
  EXPECT_EQ(PrintedWhileLoading(loaded, "\n\n   Small  \n\n nBias=2\nnGain=3\n", true), "");
  EXPECT_EQ(loaded.gain * 100 + loaded.bias, 302);
}

TEST(CFilter, FailuresPrintTheirMessagesAndNamesAreBounded) {
  TempDir dir;
  SmallFilter filter("Small");
  const std::string longWord(100, 'W');
  EXPECT_EQ(PrintedWhileLoading(filter, "\nLarge\nnGain=3\nnBias=1\n", false), "Filter Small find non-matched name Large!!!\n");
  EXPECT_EQ(PrintedWhileLoading(filter, "", false), "Filter Small find non-matched name !!!\n");
  EXPECT_EQ(PrintedWhileLoading(filter, "\n" + longWord + "\n", false),
            "Filter Small find non-matched name " + longWord.substr(0, 63) + "!!!\n");
  EXPECT_FALSE(filter.LoadParameters(nullptr) || filter.SaveParameters(nullptr));
  WriteFile(dir.File("bad.txt"), "\nSmall\nnGain=11\n");
  CaptureStdout();
  EXPECT_EQ(LoadParametersFromFile(filter, dir.File("missing.txt").c_str()), 0);
  EXPECT_EQ(SaveParametersToFile(filter, dir.File("no/dir.txt").c_str()), 0);
  EXPECT_EQ(LoadParametersFromFile(filter, dir.File("bad.txt").c_str()), 0);
  EXPECT_EQ(GetCapturedStdout(), "Open file " + dir.File("missing.txt") + " fail!!! errcode=0\nOpen file " +
                                     dir.File("no/dir.txt") + " fail!!! \nnGain value 11 is out of range [0,10]!!!\n"
                                     "Missing to load nGain!!!\nMissing to load nBias!!!\n"
                                     "Filter Small loading parameter fail!!!\n");
  EXPECT_EQ(filter.gain, 1);
  // A second SetName registers the parameters again; names are bounded.
  EXPECT_TRUE(filter.SetName("Small"));
  EXPECT_EQ(PrintedWhileLoading(filter, "\nSmall\nnGain=2\nnBias=2\nnGain=2\nnBias=2\n", false),
            "nGain has been loaded more than once!!!\nMissing to load nGain!!!\nMissing to load nBias!!!\n");
  const std::string longName(100, 'x');
  EXPECT_EQ(SmallFilter(longName.c_str()).mName, longName.substr(0, 63));
}
