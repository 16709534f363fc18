#include "framework/CMultipleFilterProcessFlow.h"

#include <gtest/gtest.h>

#include "tests/support/SmallFilter.h"
#include "tests/support/TestFiles.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

class ThreeStageFlow final : public CMultipleFilterProcessFlow {
 public:
  explicit ThreeStageFlow(bool setupSucceeds) : mSetupSucceeds(setupSucceeds) {
    SetNameAndSetup("Flow");
  }
  ~ThreeStageFlow() = default;

  bool Initialize() override {
    ++initializeCalls;
    mParameterList.AddParameter("nStages", &stages, 0, 9, nullptr);
    stages = 3;
    return true;
  }
  bool SetupFilters() override {
    if (!mSetupSucceeds) return false;
    AddFilter(&first, nullptr);
    AddFilter(&second, "_2");
    AddFilter(&third, "_3");
    return true;
  }

  SmallFilter first{"Small"};
  SmallFilter second{"Small"};
  SmallFilter third{"Small"};
  int32_t stages = 0;
  int initializeCalls = 0;

 private:
  bool mSetupSucceeds;
};

std::string SaveToText(ThreeStageFlow& flow) {
  return TextWrittenBy([&](FILE* stream) { EXPECT_TRUE(flow.SaveParameters(stream)); });
}

}  // namespace

TEST(CMultipleFilterProcessFlow, SavesOwnSectionThenEachMember) {
  ThreeStageFlow flow(true);
  flow.second.gain = 5;
  EXPECT_EQ(flow.FilterCount(), 3);
  EXPECT_STREQ(flow.second.mName, "Small_2");
  EXPECT_EQ(SaveToText(flow),
            "\nFlow\nnStages=3;\t\tRange=[0,9] \n"
            "\nSmall\nnGain=1;\t\tRange=[0,10] \nnBias=0;\t\tRange=[-10,10] offset\n"
            "\nSmall_2\nnGain=5;\t\tRange=[0,10] \nnBias=0;\t\tRange=[-10,10] offset\n"
            "\nSmall_3\nnGain=1;\t\tRange=[0,10] \nnBias=0;\t\tRange=[-10,10] offset\n");
}

TEST(CMultipleFilterProcessFlow, LoadsBackWhatItSaved) {
  ThreeStageFlow saved(true);
  saved.stages = 9;
  saved.first.bias = -1;
  saved.third.gain = 10;
  FILE* stream = StreamOf(SaveToText(saved));
  ThreeStageFlow loaded(true);
  CaptureStdout();
  EXPECT_TRUE(loaded.LoadParameters(stream));
  EXPECT_EQ(GetCapturedStdout(), "");
  std::fclose(stream);
  EXPECT_EQ(loaded.stages, 9);
  EXPECT_EQ(loaded.first.bias, -1);
  EXPECT_EQ(loaded.third.gain, 10);
}

TEST(CMultipleFilterProcessFlow, DamagedSecondSectionStopsAndListsTheRest) {
  ThreeStageFlow flow(true);
  FILE* stream = StreamOf(
      "\nFlow\nnStages=2\n"
      "\nSmall\nnGain=4\nnBias=4\n"
      "\nSmall_2\nnGain=4\nnBias\n"
      "\nSmall_3\nnGain=4\nnBias=4\n");
  CaptureStdout();
  EXPECT_FALSE(flow.LoadParameters(stream));
  EXPECT_EQ(GetCapturedStdout(),
            "FindNameValue from nBias\n failed!!!\n"
            "Missing to load nBias!!!\n"
            "Filter Small_2 is missing to load parameters!!!\n"
            "Filter Small_3 is missing to load parameters!!!\n");
  std::fclose(stream);
  EXPECT_EQ(flow.first.gain, 4);
  EXPECT_EQ(flow.first.bias, 4);
  EXPECT_EQ(flow.second.gain, 4);
  EXPECT_EQ(flow.third.gain, 1);
}

TEST(CMultipleFilterProcessFlow, OwnSectionFailuresStopBeforeMembers) {
  ThreeStageFlow flow(true);
  FILE* wrongName = StreamOf("\nOther\nnStages=2\n");
  FILE* badValue = StreamOf("\nFlow\nnStages=20\n");
  CaptureStdout();
  EXPECT_FALSE(flow.LoadParameters(wrongName));
  EXPECT_FALSE(flow.LoadParameters(badValue));
  EXPECT_EQ(GetCapturedStdout(),
            "Filter Flow find non-matched name Other!!!\n"
            "nStages value 20 is out of range [0,9]!!!\nMissing to load nStages!!!\n");
  std::fclose(wrongName);
  std::fclose(badValue);
}

TEST(CMultipleFilterProcessFlow, MemberListOperations) {
  ThreeStageFlow flow(true);
  EXPECT_EQ(flow.AddFilter(nullptr, "_9"), 0);
  EXPECT_EQ(flow.FilterCount(), 3);
  CaptureStdout();
  EXPECT_EQ(flow.CheckAllFiltersLoaded(), 0);
  EXPECT_EQ(GetCapturedStdout(),
            "Filter Small is missing to load parameters!!!\n"
            "Filter Small_2 is missing to load parameters!!!\n"
            "Filter Small_3 is missing to load parameters!!!\n");
  flow.ClearFilters();
  EXPECT_EQ(flow.FilterCount(), 0);
  EXPECT_EQ(flow.CheckAllFiltersLoaded(), 1);
  EXPECT_EQ(SaveToText(flow), "\nFlow\nnStages=3;\t\tRange=[0,9] \n");
}

TEST(CMultipleFilterProcessFlow, FailedSetupSkipsInitialize) {
  ThreeStageFlow failing(false);
  EXPECT_EQ(failing.initializeCalls, 0);
  EXPECT_STREQ(failing.mName, "Flow");
  ThreeStageFlow working(true);
  EXPECT_EQ(working.initializeCalls, 1);
  CaptureStdout();
  EXPECT_FALSE(working.SaveParameters(nullptr));
  EXPECT_EQ(GetCapturedStdout(), "Filter Flow saving parameters fail!!!\n");
}
