#include "framework/FilterParameterList.h"

#include "tests/support/TestPrelude.h"

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
  for (const auto& c : CaseRows("framework/FindNameValue.txt")) {
    char name[kParameterNameSize] = "-";
    int32_t value = 0;
    EXPECT_EQ(FindNameValue(c[0].c_str(), name, &value), c[1] == "-" ? 0 : 1) << c[0];
    EXPECT_EQ(name + std::string("=") + std::to_string(value), c[1] + "=" + c[2]) << c[0];
  }
}

TEST(FilterParameterList, LoadsCountLinesAndReportsEachFailure) {
  for (const auto& c : CaseRows("framework/LoadList.txt")) {
    SCOPED_TRACE(c[0].substr(0, 40));
    ThreeParameters p;
    FILE* stream = StreamOf(c[0]);
    CaptureStdout();
    EXPECT_EQ(p.list.LoadList(stream), c[1].empty() ? 1 : 0);
    EXPECT_EQ(GetCapturedStdout(), c[1]);
    std::fclose(stream);
    EXPECT_EQ(std::to_string(p.width) + " " + std::to_string(p.height) + " " + std::to_string(p.scale), c[2]);
  }
}

TEST(FilterParameterList, SavesArraysInRegistrationOrderAndSetsDirectly) {
  ThreeParameters p;
  int32_t values[3] = {1, 2, 5};
  EXPECT_EQ(p.list.AddArrayParameter("nGain", values, 3, 0, 10, "gain") + p.list.AddArrayParameter("nZero", values, 0, 0, 10, nullptr) +
                p.list.AddIndexedArrayParameter("nLut", values, 0, 2, 0, 9, "lut") +
                p.list.AddIndexedArrayParameter("nLut", values + 1, 1, 2, 0, 9, "lut"), 4);
  EXPECT_EQ(p.list.Count(), 11);
  ExpectGolden(TextWrittenBy([&](FILE* f) { EXPECT_EQ(p.list.SaveList(f), 1); }), "framework/SavedArrays.golden");
  EXPECT_EQ(p.list.SaveList(nullptr), 0);
  p.list.Clear();
  EXPECT_EQ(p.list.Count(), 0);
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
