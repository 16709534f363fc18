#include "tests/support/TestPrelude.h"

#include <opencv2/core/persistence.hpp>

#include "engine/dualCalibration.h"

namespace {

// The engine of tests/data/chart/ResultEngine.yml, with the matrices of the case's map there replacing its own.
std::unique_ptr<dualCalibration> FixedEngine(const char* name) {
  auto e = std::make_unique<dualCalibration>();
  e->m_nBoardWidth = 9, e->m_nBoardHeight = 6, e->m_nSquareSize = 25;
  const cv::FileStorage file(QLM_TEST_DATA_DIR "/chart/ResultEngine.yml", cv::FileStorage::READ);
  ChartResultSet& s = e->mSecondResult;
  const std::map<std::string, cv::Mat*> matrices = {
      {"K1", &e->K1},        {"K2", &e->K2},        {"P1", &e->P1},        {"P2", &e->P2},        {"D1", &e->D1},
      {"D2", &e->D2},        {"assembled", &e->m_assembleMatrix},          {"second_K1", &s.K1},  {"second_K2", &s.K2},
      {"second_P1", &s.P1},  {"second_P2", &s.P2},  {"second_D1", &s.D1},  {"second_D2", &s.D2}};
  for (const cv::FileNode& map : {file.root(), file[name]}) {
    for (const auto& [key, matrix] : matrices) if (!map[key].empty()) map[key] >> *matrix;
  }
  float* floats[] = {&e->r_x, &e->r_y, &e->r_z, &e->r_x_1, &e->r_y_1, &e->r_z_1, &e->r_x_2, &e->r_y_2, &e->r_z_2,
                     &e->mRMS, &s.r_x, &s.r_y, &s.r_z};
  for (size_t i = 0; i < 13; ++i) *floats[i] = static_cast<float>(file["floats"][static_cast<int>(i)].real());
  for (int i = 0; i < 3; ++i) e->mT[i] = file["mT"][i].real(), s.mT[i] = file["second_mT"][i].real();
  return e;
}

}  // namespace

// Each file is written twice and holds one copy. The k4_2..k6_2 lines follow the second set's D2 in both files; a
// coefficient D2 lacks prints as 0.
TEST(ResultFiles, FilesMatchTheirGoldenText) {
  for (const char* name : {"main_d1_of_5", "main_d1_of_8", "main_d2_short", "platform"}) {
    SCOPED_TRACE(name);
    TempDir dir;
    auto engine = FixedEngine(name);
    const bool platform = std::string(name) == "platform";
    for (int i = 0; i < 2; ++i) platform ? engine->savePlatformCalibrationResult() : engine->saveCalibrationResult();
    ExpectGolden(ReadFile(dir.File(platform ? "calibrationResult_mtk.txt" : "calibrationResult.txt")),
                 std::string("ResultFiles/") + name + ".golden");
    EXPECT_FALSE(FileExists(dir.File(platform ? "calibrationResult.txt" : "calibrationResult_mtk.txt")));
  }
}

// The result files and the calibration log.
TEST(ResultFiles, UncreatableFilesAreSkippedSilently) {
  TempDir dir;
  setenv("QLM_PICTURES_DIR", dir.File("missing/folder").c_str(), 1);
  auto engine = FixedEngine("main_d1_of_5");
  testing::internal::CaptureStdout();
  engine->saveCalibrationResult();
  engine->savePlatformCalibrationResult();
  engine->appendCalibLog();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_FALSE(FileExists(dir.File("missing")));
}
