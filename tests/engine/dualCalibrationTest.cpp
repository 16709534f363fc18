#include "engine/dualCalibration.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <sstream>
#include <vector>

#include "tests/support/TestFiles.h"

namespace {

bool LoadText(dualCalibration& engine, const std::string& text) {
  FILE* stream = StreamOf(text);
  const bool loaded = engine.LoadParameters(stream);
  std::fclose(stream);
  return loaded;
}

}  // namespace

TEST(dualCalibration, ConstructsWithTheDefaultSection) {
  TempDir dir;
  auto engine = std::make_unique<dualCalibration>();
  ASSERT_EQ(SaveParametersToFile(*engine, dir.File("default.txt").c_str()), 1);
  ExpectGolden(ReadFile(dir.File("default.txt")), "dualCalibration/default_section.golden");
  for (const cv::Mat* k : {&engine->K1, &engine->K2, &engine->mSecondResult.K1, &engine->mSecondResult.K2})
    EXPECT_EQ(cv::norm(*k, cv::Mat::eye(3, 3, CV_64F), cv::NORM_INF), 0.0);
  for (const cv::Mat* d : {&engine->D1, &engine->D2, &engine->mSecondResult.D1, &engine->mSecondResult.D2})
    EXPECT_EQ(cv::norm(*d, cv::Mat::zeros(1, 8, CV_64F), cv::NORM_INF), 0.0);
  engine->m_bSaveDebugInfo = 1;
  EXPECT_EQ(TextWrittenBy([&](FILE* f) { engine->mSecondParameterList.SaveList(f); }),
            "bSaveDebugInfo=1;\t\tRange=[0,1] \n");
}

// Distinct values in every member, saved, shuffled and loaded into a fresh
// engine that saves the same text: each row binds its own member. Without
// nCalibDis the last line is read twice.
TEST(dualCalibration, SaveThenLoadInAnyOrderGivesBackEveryValue) {
  auto source = std::make_unique<dualCalibration>();
  int32_t next = 0;
  for (FilterParameter* p = source->mParameterList.Head(); p != nullptr; p = p->next)
    *p->value = p->max > 1 ? (next++ % p->max) + 1 : p->max;
  const std::string saved = TextWrittenBy([&](FILE* f) { source->SaveParameters(f); });
  std::vector<std::string> lines;
  std::istringstream stream(saved.substr(std::string("\nParameterList\n").size()));
  for (std::string line; std::getline(stream, line);) lines.push_back(line + "\n");
  std::shuffle(lines.begin(), lines.end(), std::mt19937(20261122));
  std::string shuffled = "\nParameterList\n", calibDis;
  for (const std::string& line : lines) (line.rfind("nCalibDis=", 0) == 0 ? calibDis : shuffled) += line;
  auto loaded = std::make_unique<dualCalibration>();
  testing::internal::CaptureStdout();
  EXPECT_FALSE(LoadText(*loaded, shuffled));
  const std::string last = shuffled.substr(shuffled.rfind('\n', shuffled.size() - 2) + 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            last.substr(0, last.find('=')) + " has been loaded more than once!!!\nMissing to load nCalibDis!!!\n");
  EXPECT_TRUE(LoadText(*loaded, shuffled + calibDis));
  EXPECT_EQ(TextWrittenBy([&](FILE* f) { loaded->SaveParameters(f); }), saved);
}
