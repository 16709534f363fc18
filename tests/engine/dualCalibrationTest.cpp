#include "engine/dualCalibration.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <sstream>
#include <vector>

#include "tests/support/TestFiles.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

std::vector<std::string> SectionLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line + "\n");
  return lines;
}

}  // namespace

TEST(dualCalibration, DefaultSectionIsTheParameterTable) {
  TempDir dir;
  auto engine = std::make_unique<dualCalibration>();
  ASSERT_EQ(SaveParametersToFile(*engine, dir.File("default.txt").c_str()), 1);
  const std::string saved = ReadFile(dir.File("default.txt"));
  ExpectGolden(saved, "dualCalibration/default_section.golden");
  const std::vector<std::string> lines = SectionLines(saved);
  ASSERT_EQ(lines.size(), 50u);
  EXPECT_EQ(lines[0], "\n");
  EXPECT_EQ(lines[1], "ParameterList\n");
  EXPECT_EQ(lines[2], "bSaveDebugInfo=0;\t\tRange=[0,1] \n");
  EXPECT_EQ(lines[10], "nCalibDis=55;\t\tRange=[0,1000] \n");
  EXPECT_EQ(lines[17], "nMaskSizeSelect_2=1;\t\tRange=[0,1024] \n");
  EXPECT_EQ(lines[49], "nDualCalibSameFocalLength=0;\t\tRange=[0,1] \n");
}

TEST(dualCalibration, ConstructorState) {
  auto engine = std::make_unique<dualCalibration>();
  EXPECT_STREQ(engine->mName, "ParameterList");
  EXPECT_EQ(engine->mParameterList.Count(), 48);
  EXPECT_EQ(cv::norm(engine->K1, cv::Mat::eye(3, 3, CV_64F), cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::norm(engine->K2, cv::Mat::eye(3, 3, CV_64F), cv::NORM_INF), 0.0);
  EXPECT_EQ(engine->D1.size(), cv::Size(8, 1));
  EXPECT_EQ(cv::countNonZero(engine->D2), 0);
  EXPECT_EQ(engine->mSecondResult.K1.type(), CV_64F);
  EXPECT_TRUE(engine->R.empty());
  EXPECT_TRUE(engine->mObjectPoints.empty());
  EXPECT_EQ(engine->m_nCalibDis, 55);
  EXPECT_EQ(engine->m_nMaskSizeSelect_2, 1);
  ASSERT_EQ(engine->mSecondParameterList.Count(), 1);
  EXPECT_STREQ(engine->mSecondParameterList.Head()->name, "bSaveDebugInfo");
  EXPECT_EQ(engine->mSecondParameterList.Head()->value, &engine->m_bSaveDebugInfo);
  EXPECT_EQ(engine->mParameterList.Find("bSaveDebugInfo")->value, &engine->m_bSaveDebugInfo);
  EXPECT_EQ(engine->mParameterList.Find("nMaxReprojectionERROR")->value, &engine->m_nMaxReprojectionERROR);
}

TEST(dualCalibration, SaveThenLoadInAnyOrderGivesBackEveryValue) {
  TempDir dir;
  auto source = std::make_unique<dualCalibration>();
  int32_t next = 0;
  for (FilterParameter* p = source->mParameterList.Head(); p != nullptr; p = p->next) {
    *p->value = p->max > 1 ? (next++ % p->max) + 1 : p->max;
  }
  ASSERT_EQ(SaveParametersToFile(*source, dir.File("saved.txt").c_str()), 1);
  const std::string saved = ReadFile(dir.File("saved.txt"));

  std::vector<std::string> lines = SectionLines(saved);
  std::vector<std::string> body(lines.begin() + 2, lines.end());
  std::shuffle(body.begin(), body.end(), std::mt19937(20261122));
  std::string shuffled = "\nParameterList\n";
  for (const std::string& line : body) shuffled += line;
  WriteFile(dir.File("shuffled.txt"), shuffled);

  auto loaded = std::make_unique<dualCalibration>();
  CaptureStdout();
  EXPECT_EQ(LoadParametersFromFile(*loaded, dir.File("shuffled.txt").c_str()), 1);
  EXPECT_EQ(GetCapturedStdout(), "");
  ASSERT_EQ(SaveParametersToFile(*loaded, dir.File("again.txt").c_str()), 1);
  EXPECT_EQ(ReadFile(dir.File("again.txt")), saved);
}

TEST(dualCalibration, SectionWithoutCalibDisFailsToLoad) {
  TempDir dir;
  auto engine = std::make_unique<dualCalibration>();
  ASSERT_EQ(SaveParametersToFile(*engine, dir.File("p.txt").c_str()), 1);
  std::string text = ReadFile(dir.File("p.txt"));
  const std::string calibDis = "nCalibDis=55;\t\tRange=[0,1000] \n";
  text.erase(text.find(calibDis), calibDis.size());
  WriteFile(dir.File("p.txt"), text);
  CaptureStdout();
  EXPECT_EQ(LoadParametersFromFile(*engine, dir.File("p.txt").c_str()), 0);
  EXPECT_EQ(GetCapturedStdout(),
            "nDualCalibSameFocalLength has been loaded more than once!!!\n"
            "Missing to load nCalibDis!!!\n"
            "Filter ParameterList loading parameter fail!!!\n");
}
