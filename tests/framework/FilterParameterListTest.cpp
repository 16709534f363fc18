#include "framework/FilterParameterList.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/support/TestFiles.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

// Three bound integers with distinct ranges, as a small filter would hold them.
struct ThreeParameters {
  int32_t width = 7;
  int32_t height = 8;
  int32_t scale = 9;
  FilterParameterList list;

  ThreeParameters() {
    list.AddParameter("nWidth", &width, 0, 100, nullptr);
    list.AddParameter("nHeight", &height, -5, 5, "rows");
    list.AddParameter("nScale", &scale, 1, 1000, nullptr);
  }
};

// Runs LoadList over text held in memory and returns what it printed.
std::string LoadFromText(FilterParameterList& list, const std::string& text, int* result) {
  FILE* stream = StreamOf(text);
  CaptureStdout();
  *result = list.LoadList(stream);
  std::string printed = GetCapturedStdout();
  std::fclose(stream);
  return printed;
}

std::string SaveToText(const FilterParameterList& list) {
  return TextWrittenBy([&](FILE* stream) { EXPECT_EQ(list.SaveList(stream), 1); });
}

}  // namespace

TEST(SaveList, WritesOneLinePerEntryInRegistrationOrder) {
  ThreeParameters p;
  EXPECT_EQ(SaveToText(p.list),
            "nWidth=7;\t\tRange=[0,100] \n"
            "nHeight=8;\t\tRange=[-5,5] rows\n"
            "nScale=9;\t\tRange=[1,1000] \n");
  EXPECT_EQ(p.list.SaveList(nullptr), 0);
  FilterParameterList empty;
  EXPECT_EQ(SaveToText(empty), "");
}

TEST(AddArrayParameter, NamesAndBindsConsecutiveIntegers) {
  int32_t values[3] = {1, 2, 3};
  FilterParameterList list;
  EXPECT_EQ(list.AddArrayParameter("nGain", values, 3, 0, 10, "gain"), 1);
  EXPECT_EQ(list.AddArrayParameter("nZero", values, 0, 0, 10, nullptr), 1);
  EXPECT_EQ(list.AddArrayParameter("nOne", values, 1, 0, 10, nullptr), 1);
  EXPECT_EQ(list.AddArrayParameter("nNegative", values, -4, 0, 10, nullptr), 1);
  EXPECT_EQ(list.Count(), 6);
  EXPECT_EQ(SaveToText(list),
            "nGain_0=1;\t\tRange=[0,10] gain\n"
            "nGain_1=2;\t\tRange=[0,10] \n"
            "nGain_2=3;\t\tRange=[0,10] \n"
            "nZero_0=1;\t\tRange=[0,10] \n"
            "nOne_0=1;\t\tRange=[0,10] \n"
            "nNegative_0=1;\t\tRange=[0,10] \n");
  EXPECT_EQ(list.Find("nGain_2")->value, &values[2]);
}

TEST(AddIndexedArrayParameter, PrefixesRowAndKeepsDescriptionOnRowZero) {
  int32_t table[2][2] = {{1, 2}, {3, 4}};
  FilterParameterList list;
  EXPECT_EQ(list.AddIndexedArrayParameter("nLut", table[0], 0, 2, 0, 9, "lut"), 1);
  EXPECT_EQ(list.AddIndexedArrayParameter("nLut", table[1], 1, 2, 0, 9, "lut"), 1);
  EXPECT_EQ(SaveToText(list),
            "nLut_0_0=1;\t\tRange=[0,9] lut\n"
            "nLut_0_1=2;\t\tRange=[0,9] \n"
            "nLut_1_0=3;\t\tRange=[0,9] \n"
            "nLut_1_1=4;\t\tRange=[0,9] \n");
}

TEST(FindNameValue, ParsesLikePercentD) {
  struct Case {
    const char* line;
    int result;
    const char* name;
    int32_t value;
  };
  const std::string longest(63, 'a');
  const std::string tooLong(64, 'a');
  const std::string longestLine = longest + "=1";
  const std::string tooLongLine = tooLong + "=1";
  const Case cases[] = {
      {"nBoardWidth=9", 1, "nBoardWidth", 9},
      {"nBoardWidth= 9", 1, "nBoardWidth", 9},
      {"nBoardWidth=9x", 1, "nBoardWidth", 9},
      {"nBoardWidth=-12;\t\tRange=[0,1] \n", 1, "nBoardWidth", -12},
      {"nBoardWidth=+3", 1, "nBoardWidth", 3},
      {" nBoardWidth=9", 1, " nBoardWidth", 9},
      {"=5", 1, "", 5},
      {"a=b=4", 0, "", 0},
      {"a=2147483647", 1, "a", 2147483647},
      {"a=-2147483648", 1, "a", INT32_MIN},
      {"a=2147483648", 0, "", 0},
      {"a=-2147483649", 0, "", 0},
      {"a=99999999999999999999999", 0, "", 0},
      {"", 0, "", 0},
      {"\n", 0, "", 0},
      {"nBoardWidth 9", 0, "", 0},
      {"nBoardWidth=", 0, "", 0},
      {"nBoardWidth=-", 0, "", 0},
      {longestLine.c_str(), 1, longest.c_str(), 1},
      {tooLongLine.c_str(), 0, "", 0},
  };
  for (const Case& c : cases) {
    char name[kParameterNameSize] = {};
    int32_t value = 0;
    EXPECT_EQ(FindNameValue(c.line, name, &value), c.result) << c.line;
    if (c.result == 1) {
      EXPECT_STREQ(name, c.name) << c.line;
      EXPECT_EQ(value, c.value) << c.line;
    }
  }
}

TEST(SetParameterValue, ChecksNameSecondLoadAndRange) {
  ThreeParameters p;
  CaptureStdout();
  EXPECT_EQ(p.list.SetParameterValue("nWidth", 100), 1);
  EXPECT_EQ(p.list.SetParameterValue("nWidth", 3), 0);
  EXPECT_EQ(p.list.SetParameterValue("nwidth", 3), 0);
  EXPECT_EQ(p.list.SetParameterValue("nHeight", -6), 0);
  EXPECT_EQ(p.list.SetParameterValue("nScale", 1001), 0);
  EXPECT_EQ(p.list.SetParameterValue("nScale", 1), 1);
  EXPECT_EQ(GetCapturedStdout(),
            "nWidth has been loaded more than once!!!\n"
            "Can not find parameter name nwidth!!!\n"
            "nHeight value -6 is out of range [-5,5]!!!\n"
            "nScale value 1001 is out of range [1,1000]!!!\n");
  EXPECT_EQ(p.width, 100);
  EXPECT_EQ(p.height, 8);
  EXPECT_EQ(p.scale, 1);
}

TEST(CheckAllLoaded, ListsMissingEntriesInOrder) {
  ThreeParameters p;
  CaptureStdout();
  p.list.SetParameterValue("nHeight", 0);
  EXPECT_EQ(p.list.CheckAllLoaded(), 0);
  p.list.ResetLoadedFlags();
  p.list.SetParameterValue("nHeight", 1);
  EXPECT_EQ(GetCapturedStdout(), "Missing to load nWidth!!!\nMissing to load nScale!!!\n");
  FilterParameterList empty;
  EXPECT_EQ(empty.CheckAllLoaded(), 1);
}

TEST(LoadList, LoadsExactlyCountLinesInAnyOrder) {
  ThreeParameters p;
  int result = 0;
  const std::string printed =
      LoadFromText(p.list, "nScale=1000\nnWidth=0;\t\tRange=[0,100] \nnHeight=-5\nnext section\n", &result);
  EXPECT_EQ(printed, "");
  EXPECT_EQ(result, 1);
  EXPECT_EQ(p.width, 0);
  EXPECT_EQ(p.height, -5);
  EXPECT_EQ(p.scale, 1000);
}

TEST(LoadList, ReportsEachFailureAndKeepsWhatWasLoaded) {
  struct Case {
    const char* text;
    const char* printed;
    int32_t width, height, scale;
  };
  const Case cases[] = {
      {"nWidth=1\n\nnScale=2\n",
       "FindNameValue from \n failed!!!\nMissing to load nHeight!!!\nMissing to load nScale!!!\n", 1, 8, 9},
      {"nWidth=1\nnHeight 2\n",
       "FindNameValue from nHeight 2\n failed!!!\nMissing to load nHeight!!!\nMissing to load nScale!!!\n",
       1, 8, 9},
      {"nWidth=1\nnDepth=2\n",
       "Can not find parameter name nDepth!!!\nMissing to load nHeight!!!\nMissing to load nScale!!!\n", 1, 8,
       9},
      {"nWidth=1\nnWidth=2\n",
       "nWidth has been loaded more than once!!!\nMissing to load nHeight!!!\nMissing to load nScale!!!\n", 1,
       8, 9},
      {"nWidth=1\nnHeight=6\n",
       "nHeight value 6 is out of range [-5,5]!!!\nMissing to load nHeight!!!\nMissing to load nScale!!!\n",
       1, 8, 9},
      {"nScale=0\n", "nScale value 0 is out of range [1,1000]!!!\nMissing to load nWidth!!!\n"
                     "Missing to load nHeight!!!\nMissing to load nScale!!!\n", 7, 8, 9},
      // End of file: the last line is read again.
      {"nWidth=1\nnHeight=2\n",
       "nHeight has been loaded more than once!!!\nMissing to load nScale!!!\n", 1, 2, 9},
      {"nWidth=1\nnHeight=2", "nHeight has been loaded more than once!!!\nMissing to load nScale!!!\n", 1, 2,
       9},
      // End of file on the very first read: an empty line.
      {"", "FindNameValue from  failed!!!\nMissing to load nWidth!!!\nMissing to load nHeight!!!\n"
           "Missing to load nScale!!!\n", 7, 8, 9},
      {" nWidth=1\n", "Can not find parameter name  nWidth!!!\nMissing to load nWidth!!!\n"
                      "Missing to load nHeight!!!\nMissing to load nScale!!!\n", 7, 8, 9},
      {"=1\n", "Can not find parameter name !!!\nMissing to load nWidth!!!\n"
               "Missing to load nHeight!!!\nMissing to load nScale!!!\n", 7, 8, 9},
  };
  for (const Case& c : cases) {
    ThreeParameters p;
    int result = -1;
    EXPECT_EQ(LoadFromText(p.list, c.text, &result), c.printed) << c.text;
    EXPECT_EQ(result, 0) << c.text;
    EXPECT_EQ(p.width, c.width) << c.text;
    EXPECT_EQ(p.height, c.height) << c.text;
    EXPECT_EQ(p.scale, c.scale) << c.text;
  }
}

TEST(LoadList, HandlesOverlongLinesAndNamesWithoutStopping) {
  ThreeParameters p;
  int result = -1;
  const std::string longName(80, 'n');
  const std::string printed = LoadFromText(p.list, longName + "=1\n", &result);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(printed, "FindNameValue from " + longName + "=1\n failed!!!\nMissing to load nWidth!!!\n"
                     "Missing to load nHeight!!!\nMissing to load nScale!!!\n");
  // A line longer than the buffer is read in 1023-character pieces.
  const std::string hugeLine = "nWidth=5" + std::string(3000, ' ') + "\nnHeight=1\nnScale=1\n";
  ThreeParameters q;
  const std::string hugePrinted = LoadFromText(q.list, hugeLine, &result);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(q.width, 5);
  EXPECT_NE(hugePrinted.find("FindNameValue from "), std::string::npos);
}

TEST(LoadList, NullStreamAndEmptyList) {
  ThreeParameters p;
  p.list.SetParameterValue("nWidth", 3);
  CaptureStdout();
  EXPECT_EQ(p.list.LoadList(nullptr), 0);
  EXPECT_EQ(GetCapturedStdout(), "");
  EXPECT_EQ(p.list.Find("nWidth")->loaded, 1);  // flags untouched

  FilterParameterList empty;
  int result = 0;
  EXPECT_EQ(LoadFromText(empty, "nWidth=1\n", &result), "");
  EXPECT_EQ(result, 1);
}

TEST(Clear, EmptiesTheList) {
  ThreeParameters p;
  p.list.Clear();
  EXPECT_EQ(p.list.Count(), 0);
  EXPECT_EQ(p.list.Head(), nullptr);
  EXPECT_EQ(SaveToText(p.list), "");
  int32_t again = 4;
  p.list.AddParameter("nAgain", &again, 0, 9, nullptr);
  EXPECT_EQ(SaveToText(p.list), "nAgain=4;\t\tRange=[0,9] \n");
}
