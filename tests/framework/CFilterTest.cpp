#include "framework/CFilter.h"

#include <gtest/gtest.h>

#include "tests/support/SmallFilter.h"
#include "tests/support/TestFiles.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

TEST(CFilter, SavesHeaderAndLinesAndLoadsThemBack) {
  TempDir dir;
  SmallFilter saved("Small");
  saved.gain = 7;
  saved.bias = -3;
  ASSERT_EQ(SaveParametersToFile(saved, dir.File("p.txt").c_str()), 1);
  EXPECT_EQ(ReadFile(dir.File("p.txt")),
            "\nSmall\n"
            "nGain=7;\t\tRange=[0,10] \n"
            "nBias=-3;\t\tRange=[-10,10] offset\n");

  SmallFilter loaded("Small");
  CaptureStdout();
  EXPECT_EQ(LoadParametersFromFile(loaded, dir.File("p.txt").c_str()), 1);
  EXPECT_EQ(GetCapturedStdout(), "");
  EXPECT_EQ(loaded.gain, 7);
  EXPECT_EQ(loaded.bias, -3);
}

TEST(CFilter, HeaderSkipsBlankLinesAndWhitespace) {
  SmallFilter filter("Small");
  FILE* stream = StreamOf("\n\n   Small  \n\n nBias=2\nnGain=3\n");
  EXPECT_TRUE(filter.LoadParameters(stream));
  std::fclose(stream);
  EXPECT_EQ(filter.bias, 2);
  EXPECT_EQ(filter.gain, 3);
}

TEST(CFilter, RejectsAnotherSectionBeforeReadingParameters) {
  SmallFilter filter("Small");
  const std::string longWord(100, 'W');
  const struct {
    std::string text;
    std::string printed;
  } cases[] = {
      {"\nLarge\nnGain=3\nnBias=1\n", "Filter Small find non-matched name Large!!!\n"},
      {"", "Filter Small find non-matched name !!!\n"},
      {"\n" + longWord + "\n", "Filter Small find non-matched name " + longWord.substr(0, 63) + "!!!\n"},
  };
  for (const auto& c : cases) {
    FILE* stream = StreamOf(c.text);
    CaptureStdout();
    EXPECT_FALSE(filter.LoadParameters(stream));
    EXPECT_EQ(GetCapturedStdout(), c.printed);
    std::fclose(stream);
    EXPECT_EQ(filter.gain, 1);
  }
}

TEST(CFilter, FileLevelFailuresPrintTheirMessages) {
  TempDir dir;
  SmallFilter filter("Small");
  const std::string missing = dir.File("missing.txt");
  CaptureStdout();
  EXPECT_EQ(LoadParametersFromFile(filter, missing.c_str()), 0);
  EXPECT_EQ(SaveParametersToFile(filter, (dir.File("no/such/dir.txt")).c_str()), 0);
  WriteFile(dir.File("bad.txt"), "\nSmall\nnGain=11\n");
  EXPECT_EQ(LoadParametersFromFile(filter, dir.File("bad.txt").c_str()), 0);
  EXPECT_EQ(GetCapturedStdout(),
            "Open file " + missing + " fail!!! errcode=0\n"
            "Open file " + dir.File("no/such/dir.txt") + " fail!!! \n"
            "nGain value 11 is out of range [0,10]!!!\n"
            "Missing to load nGain!!!\nMissing to load nBias!!!\n"
            "Filter Small loading parameter fail!!!\n");
}

TEST(CFilter, SecondSetNameRegistersDuplicatesThatNeverLoad) {
  SmallFilter filter("Small");
  EXPECT_TRUE(filter.SetName("Small"));
  EXPECT_EQ(filter.initializeCalls, 2);
  EXPECT_EQ(filter.mParameterList.Count(), 4);
  FILE* stream = StreamOf("\nSmall\nnGain=2\nnBias=2\nnGain=2\nnBias=2\n");
  CaptureStdout();
  EXPECT_FALSE(filter.LoadParameters(stream));
  EXPECT_EQ(GetCapturedStdout(),
            "nGain has been loaded more than once!!!\n"
            "Missing to load nGain!!!\nMissing to load nBias!!!\n");
  std::fclose(stream);
}

TEST(CFilter, NameIsBoundedToItsBuffer) {
  const std::string longName(100, 'x');
  SmallFilter filter(longName.c_str());
  EXPECT_EQ(std::string(filter.mName), longName.substr(0, 63));
  EXPECT_FALSE(filter.SaveParameters(nullptr));
}
