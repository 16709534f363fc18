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

TEST(dualCalibration, ConstructsWithTheDefaultSection) {
  TempDir dir;
  auto engine = std::make_unique<dualCalibration>();
  ASSERT_EQ(SaveParametersToFile(*engine, dir.File("default.txt").c_str()), 1);
  ExpectGolden(ReadFile(dir.File("default.txt")), "dualCalibration/default_section.golden");
  EXPECT_EQ(cv::norm(engine->K1, cv::Mat::eye(3, 3, CV_64F), cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::norm(engine->mSecondResult.K2, cv::Mat::eye(3, 3, CV_64F), cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::norm(engine->D2, cv::Mat::zeros(1, 8, CV_64F), cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::norm(engine->mSecondResult.D1, cv::Mat::zeros(1, 8, CV_64F), cv::NORM_INF), 0.0);
  engine->m_bSaveDebugInfo = 1;
  EXPECT_EQ(TextWrittenBy([&](FILE* f) { engine->mSecondParameterList.SaveList(f); }),
            "bSaveDebugInfo=1;\t\tRange=[0,1] \n");
}

// Distinct values in every member, saved, shuffled, loaded into a fresh
// engine and saved again: each row binds its own member.
TEST(dualCalibration, SaveThenLoadInAnyOrderGivesBackEveryValue) {
  TempDir dir;
  auto source = std::make_unique<dualCalibration>();
  int32_t next = 0;
  for (FilterParameter* p = source->mParameterList.Head(); p != nullptr; p = p->next)
    *p->value = p->max > 1 ? (next++ % p->max) + 1 : p->max;
  ASSERT_EQ(SaveParametersToFile(*source, dir.File("saved.txt").c_str()), 1);
  const std::string saved = ReadFile(dir.File("saved.txt"));
  std::vector<std::string> body;
  std::istringstream stream(saved.substr(std::string("\nParameterList\n").size()));
  for (std::string line; std::getline(stream, line);) body.push_back(line + "\n");
  std::shuffle(body.begin(), body.end(), std::mt19937(20261122));
  std::string shuffled = "\nParameterList\n";
  for (const std::string& line : body) shuffled += line;
  WriteFile(dir.File("shuffled.txt"), shuffled);

  auto loaded = std::make_unique<dualCalibration>();
  CaptureStdout();
  EXPECT_EQ(LoadParametersFromFile(*loaded, dir.File("shuffled.txt").c_str()), 1);
  const size_t calibDis = shuffled.find("nCalibDis=");
  shuffled.erase(calibDis, shuffled.find('\n', calibDis) + 1 - calibDis);
  WriteFile(dir.File("short.txt"), shuffled);
  EXPECT_EQ(LoadParametersFromFile(*loaded, dir.File("short.txt").c_str()), 0);
  const size_t last = shuffled.rfind('\n', shuffled.size() - 2) + 1;
  EXPECT_EQ(GetCapturedStdout(), shuffled.substr(last, shuffled.find('=', last) - last) +
                                     " has been loaded more than once!!!\n"
                                 "Missing to load nCalibDis!!!\nFilter ParameterList loading parameter fail!!!\n");
  ASSERT_EQ(SaveParametersToFile(*loaded, dir.File("again.txt").c_str()), 1);
  EXPECT_EQ(ReadFile(dir.File("again.txt")), saved);
}
