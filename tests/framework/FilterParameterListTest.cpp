#include "framework/FilterParameterList.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/TestFiles.h"

using namespace testing::internal;

namespace {

// Three bound integers with distinct ranges, as a small filter would hold them.
struct ThreeParameters {
  int32_t width = 7, height = 8, scale = 9;
  FilterParameterList list;
  ThreeParameters() {
    list.AddParameter("nWidth", &width, 0, 100, nullptr);
    list.AddParameter("nHeight", &height, -5, 5, "rows");
    list.AddParameter("nScale", &scale, 1, 1000, nullptr);
  }
};

}  // namespace

TEST(FindNameValue, ParsesLikePercentD) {
  const std::string longest(63, 'a');
  const struct {
    std::string line, name;
    int32_t value;
  } cases[] = {  // a name "-" marks a line that is rejected
      {"nB=9", "nB", 9},        {"nB= +9x;\t\tRange=[0,1] \n", "nB", 9}, {" n=-12", " n", -12},
      {"=5", "", 5},            {"a=2147483647", "a", 2147483647},     {"a=-2147483648", "a", INT32_MIN},
      {"a=b=4", "-", 0},        {"a=2147483648", "-", 0},              {"a=-2147483649", "-", 0},
      {"", "-", 0},             {"nB 9", "-", 0},                      {"nB=-", "-", 0},
      {longest + "=1", longest, 1}, {longest + "a=1", "-", 0},
  };
  for (const auto& c : cases) {
    char name[kParameterNameSize] = "-";
    int32_t value = 0;
    EXPECT_EQ(FindNameValue(c.line.c_str(), name, &value), c.name == "-" ? 0 : 1) << c.line;
    EXPECT_EQ(name + std::string("=") + std::to_string(value), c.name + "=" + std::to_string(c.value)) << c.line;
  }
}

TEST(FilterParameterList, LoadsCountLinesAndReportsEachFailure) {
  const std::string missingHS = "Missing to load nHeight!!!\nMissing to load nScale!!!\n";
  const std::string missingAll = "Missing to load nWidth!!!\n" + missingHS;
  const struct {
    std::string text, printed;
    int32_t width, height, scale;
  } cases[] = {  // an empty printout marks the one load that succeeds
      {"nScale=1000\nnWidth=0;\t\tRange=[0,100] \nnHeight=-5\nnext section\n", "", 0, -5, 1000},
      {"nWidth=1\n\nnScale=2\n", "FindNameValue from \n failed!!!\n" + missingHS, 1, 8, 9},
      {"nWidth=1\nnDepth=2\n", "Can not find parameter name nDepth!!!\n" + missingHS, 1, 8, 9},
      {"nWidth=1\nnWidth=2\n", "nWidth has been loaded more than once!!!\n" + missingHS, 1, 8, 9},
      {"nWidth=1\nnHeight=6\n", "nHeight value 6 is out of range [-5,5]!!!\n" + missingHS, 1, 8, 9},
      {"nScale=0\n", "nScale value 0 is out of range [1,1000]!!!\n" + missingAll, 7, 8, 9},
      // At end of file the last line is read again; on the very first read it is empty.
      {"nWidth=1\nnHeight=2", "nHeight has been loaded more than once!!!\nMissing to load nScale!!!\n", 1, 2, 9},
      {"", "FindNameValue from  failed!!!\n" + missingAll, 7, 8, 9},
      // A line longer than the buffer is read in 1023-character pieces.
      {"nWidth=5" + std::string(3000, ' ') + "\nnHeight=1\nnScale=1\n",
       "FindNameValue from " + std::string(1023, ' ') + " failed!!!\n" + missingHS, 5, 8, 9},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 40));
    ThreeParameters p;
    FILE* stream = StreamOf(c.text);
    CaptureStdout();
    EXPECT_EQ(p.list.LoadList(stream), c.printed.empty() ? 1 : 0);
    EXPECT_EQ(GetCapturedStdout(), c.printed);
    std::fclose(stream);
    EXPECT_EQ(std::vector<int32_t>({p.width, p.height, p.scale}), std::vector<int32_t>({c.width, c.height, c.scale}));
  }
}

TEST(FilterParameterList, SavesArraysInRegistrationOrderAndSetsDirectly) {
  ThreeParameters p;
  int32_t values[3] = {1, 2, 5};
  EXPECT_EQ(p.list.AddArrayParameter("nGain", values, 3, 0, 10, "gain") + p.list.AddArrayParameter("nZero", values, 0, 0, 10, nullptr) +
                p.list.AddIndexedArrayParameter("nLut", values, 0, 2, 0, 9, "lut") +
                p.list.AddIndexedArrayParameter("nLut", values + 1, 1, 2, 0, 9, "lut"), 4);
  EXPECT_EQ(p.list.Count(), 11);
  EXPECT_EQ(TextWrittenBy([&](FILE* f) { EXPECT_EQ(p.list.SaveList(f), 1); }),
            "nWidth=7;\t\tRange=[0,100] \nnHeight=8;\t\tRange=[-5,5] rows\nnScale=9;\t\tRange=[1,1000] \n"
            "nGain_0=1;\t\tRange=[0,10] gain\nnGain_1=2;\t\tRange=[0,10] \nnGain_2=5;\t\tRange=[0,10] \n"
            "nZero_0=1;\t\tRange=[0,10] \nnLut_0_0=1;\t\tRange=[0,9] lut\nnLut_0_1=2;\t\tRange=[0,9] \n"
            "nLut_1_0=2;\t\tRange=[0,9] \nnLut_1_1=5;\t\tRange=[0,9] \n");
  EXPECT_EQ(p.list.SaveList(nullptr), 0);
  ThreeParameters q;
  CaptureStdout();
  EXPECT_EQ(q.list.SetParameterValue("nWidth", 100) * 10 + q.list.SetParameterValue("nwidth", 3), 10);
  EXPECT_EQ(q.list.LoadList(nullptr) + q.list.SetParameterValue("nWidth", 3), 0);
  q.list.ResetLoadedFlags();
  EXPECT_EQ(q.list.SetParameterValue("nWidth", 4), 1);
  EXPECT_EQ(q.list.CheckAllLoaded(), 0);
  EXPECT_EQ(GetCapturedStdout(), "Can not find parameter name nwidth!!!\nnWidth has been loaded more than once!!!\n"
                                 "Missing to load nHeight!!!\nMissing to load nScale!!!\n");
  EXPECT_EQ(q.width, 4);
  EXPECT_EQ(FilterParameterList().CheckAllLoaded(), 1);
}
