#include "framework/CMultipleFilterProcessFlow.h"

#include "tests/support/TestPrelude.h"

using namespace testing::internal;

namespace {

class Stage final : public CFilter {
 public:
  Stage() { SetName("Stage"); }
  bool Initialize() override { return mParameterList.AddParameter("nGain", &gain, 0, 10, "g") == 1; }
  int32_t gain = 1;
};

// A flow of three stages, the second and third renamed by their suffixes.
class Flow final : public CMultipleFilterProcessFlow {
 public:
  explicit Flow(bool setupSucceeds) : mSetupSucceeds(setupSucceeds) { SetNameAndSetup("Flow"); }
  bool Initialize() override { return mParameterList.AddParameter("nStages", &stages, 0, 9, nullptr) == 1; }
  bool SetupFilters() override {
    return mSetupSucceeds && AddFilter(&stage[0], nullptr) && AddFilter(&stage[1], "_2") && AddFilter(&stage[2], "_3");
  }
  Stage stage[3];
  int32_t stages = 3;

 private:
  bool mSetupSucceeds;
};

}  // namespace

TEST(CMultipleFilterProcessFlow, SavesOwnSectionThenEachMemberAndLoadsItBack) {
  Flow saved(true);
  saved.stages = 9, saved.stage[1].gain = 5;
  const std::string text = TextWrittenBy([&](FILE* stream) { EXPECT_TRUE(saved.SaveParameters(stream)); });
  EXPECT_EQ(text, "\nFlow\nnStages=9;\t\tRange=[0,9] \n\nStage\nnGain=1;\t\tRange=[0,10] g\n"
                  "\nStage_2\nnGain=5;\t\tRange=[0,10] g\n\nStage_3\nnGain=1;\t\tRange=[0,10] g\n");
  Flow loaded(true);
  EXPECT_EQ(PrintedWhileLoading(loaded, text, true), "");
  EXPECT_EQ(loaded.stages * 100 + loaded.stage[1].gain * 10 + loaded.stage[2].gain, 951);
}

TEST(CMultipleFilterProcessFlow, FailuresStopAndListTheMembersNotLoaded) {
  const std::string missing23 = "Filter Stage_2 is missing to load parameters!!!\nFilter Stage_3 is missing to load parameters!!!\n";
  Flow flow(true);
  const std::string damaged = "\nFlow\nnStages=2\n\nStage\nnGain=4\n\nStage_2\nnGain\n\nStage_3\nnGain=4\n";
  EXPECT_EQ(PrintedWhileLoading(flow, damaged, false),
            "FindNameValue from nGain\n failed!!!\nMissing to load nGain!!!\n" + missing23);
  EXPECT_EQ(flow.stages * 100 + flow.stage[0].gain * 10 + flow.stage[2].gain, 241);
  EXPECT_EQ(PrintedWhileLoading(flow, "\nOther\nnStages=2\n", false), "Filter Flow find non-matched name Other!!!\n");
  EXPECT_EQ(PrintedWhileLoading(flow, "\nFlow\nnStages=20\n", false),
            "nStages value 20 is out of range [0,9]!!!\nMissing to load nStages!!!\n");
  CaptureStdout();
  EXPECT_FALSE(flow.SaveParameters(nullptr));
  EXPECT_EQ(flow.AddFilter(nullptr, "_9") * 10 + flow.FilterCount(), 3);
  EXPECT_EQ(flow.CheckAllFiltersLoaded(), 0);
  EXPECT_EQ(GetCapturedStdout(), "Filter Flow saving parameters fail!!!\n" + missing23);
  flow.ClearFilters();
  EXPECT_EQ(PrintedWhileLoading(flow, "\nFlow\nnStages=4\n", true), "");
  Flow failing(false);
  EXPECT_EQ(std::string(failing.mName) + std::to_string(failing.mParameterList.Count()), "Flow0");
  EXPECT_EQ(failing.AddFilter(&flow.stage[0], std::string(70, 'x').c_str()), 1);
  EXPECT_EQ(std::string(flow.stage[0].mName), "Stage" + std::string(58, 'x'));  // a long suffix is cut at 63 characters
}
