// End-to-end runs of the qlm-calib program on generated data: exit
// statuses, JSON against the generators' ground truth, files written, and
// one message per bad input.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>

#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>

#include "api/CalibrationRecord.h"
#include "tests/support/TestFiles.h"

namespace fs = std::filesystem;

namespace {

struct ToolRun {
  int status = -1;
  std::string out;  // standard output and standard error, interleaved
};

ToolRun RunTool(const std::string& arguments) {
  const std::string command = std::string(QLM_CALIB_TOOL) + " " + arguments + " 2>&1";
  ToolRun run;
  FILE* pipe = popen(command.c_str(), "r");
  std::array<char, 4096> buffer;
  size_t read = 0;
  while ((read = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0) run.out.append(buffer.data(), read);
  const int status = pclose(pipe);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

nlohmann::json ReadJson(const std::string& path) {
  std::ifstream in(path);
  return nlohmann::json::parse(in);
}

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Translation of the estimate at the image centre, where the fit is best
// conditioned: the misalignment, not the lever arm of its scale error.
cv::Point2d CentreShift(const nlohmann::json& a, double cx, double cy) {
  const double x = a[0][0].get<double>() * cx + a[0][1].get<double>() * cy + a[0][2].get<double>();
  const double y = a[1][0].get<double>() * cx + a[1][1].get<double>() * cy + a[1][2].get<double>();
  return {x - cx, y - cy};
}

class QlmCalib : public testing::Test {
 protected:
  TempDir dir;
  std::string Path(const std::string& name) const { return dir.File(name); }
};

}  // namespace

TEST_F(QlmCalib, VersionAndParams) {
  const ToolRun version = RunTool("version");
  EXPECT_EQ(version.status, 0);
  EXPECT_TRUE(Contains(version.out, "library version 265 (0x109)\n")) << version.out;
  const ToolRun params = RunTool("params --out " + Path("p.txt"));
  EXPECT_EQ(params.status, 0);
  ExpectGolden(ReadFile(Path("p.txt")), "dualCalibration/default_section.golden");
  const ToolRun printed = RunTool("params");
  EXPECT_EQ(printed.out, ReadFile(Path("p.txt")));
}

TEST_F(QlmCalib, RefineRecoversTheKnownMisalignment) {
  const std::string scene = Path("scene");
  ASSERT_EQ(RunTool("synth scene --out " + scene + " --seed 11").status, 0);
  const ToolRun run = RunTool("refine --params " + scene + "/params.txt --record " + scene + "/record.bin --out " +
                          Path("result.bin") + " --json " + Path("refine.json") + " --save-matches " +
                          Path("matches.png") + " --pictures-dir " + Path("pics") + " " + scene + "/main.png " +
                          scene + "/second.png");
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_TRUE(Contains(run.out, "code:             1 (estimate computed)\n")) << run.out;
  EXPECT_TRUE(Contains(run.out, "library files:    " + Path("pics") + "\n")) << run.out;
  EXPECT_TRUE(FileExists(Path("pics/log.txt")));
  EXPECT_TRUE(FileExists(Path("matches.png")));

  const nlohmann::json report = ReadJson(Path("refine.json"));
  const nlohmann::json truth = ReadJson(scene + "/truth.json");
  EXPECT_EQ(report["code"], 1);
  EXPECT_EQ(report["constraints_met"], true);
  EXPECT_EQ(report["refine_count"], 1);
  EXPECT_GE(report["good_matches"].get<int>(), 30);
  // Named tolerance: ORB keypoints sit on whole pixels of their pyramid
  // level, so a single pair's fit is good to a few tenths of a pixel.
  constexpr double kShiftTolerancePx = 0.25;
  const cv::Point2d measured = CentreShift(report["estimate"], 1000, 750);
  const cv::Point2d expected = CentreShift(truth["expected_estimate"], 1000, 750);
  EXPECT_NEAR(measured.x, expected.x, kShiftTolerancePx);
  EXPECT_NEAR(measured.y, expected.y, kShiftTolerancePx);

  const std::string result = ReadFile(Path("result.bin"));
  std::string input = ReadFile(scene + "/record.bin");
  ASSERT_EQ(result.size(), kCalibrationRecordSize);
  input[kRecordRefineCountOffset] = static_cast<char>(input[kRecordRefineCountOffset] + 1);
  EXPECT_TRUE(result == input);
}

TEST_F(QlmCalib, ChartRecoversTheKnownBaseline) {
  const std::string chart = Path("chart");
  ASSERT_EQ(RunTool("synth chart --out " + chart + " --pairs 5 --seed 3").status, 0);
  std::string images;
  for (int k = 0; k < 5; ++k) images += " " + chart + "/pair_" + std::to_string(k) + "_main.png " + chart + "/pair_" + std::to_string(k) + "_second.png";
  const ToolRun run = RunTool("chart --params " + chart + "/params.txt --json " + Path("chart.json") +
                          " --save-rectified " + Path("rectified.png") + " --pictures-dir " + Path("pics") + images);
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_TRUE(Contains(run.out, "pair 1: " + chart + "/pair_0_main.png " + chart + "/pair_0_second.png: board found in both\n"));
  EXPECT_TRUE(FileExists(Path("pics/calibrationResult.txt")));
  EXPECT_TRUE(FileExists(Path("pics/calib_log.txt")));
  EXPECT_TRUE(FileExists(Path("rectified.png")));

  const nlohmann::json summary = ReadJson(Path("chart.json"));
  const nlohmann::json truth = ReadJson(chart + "/ground_truth.json");
  EXPECT_EQ(summary["views_total"], 5);
  EXPECT_EQ(summary["views_found"], nlohmann::json({1, 1, 1, 1, 1}));
  EXPECT_LT(summary["rms"].get<double>(), 0.2);
  const double baseline = std::hypot(truth["T"][0].get<double>(), truth["T"][1].get<double>(), truth["T"][2].get<double>());
  for (int i = 0; i < 3; ++i) {
    EXPECT_NEAR(summary["T"][i].get<double>(), truth["T"][i].get<double>(), 0.005 * baseline);
  }
  EXPECT_NEAR(summary["K1"][0][0].get<double>(), truth["main_camera"]["K"][0][0].get<double>(), 8.0);
  EXPECT_EQ(summary["per_view_errors"]["main"].size(), 5u);
  EXPECT_EQ(summary["pairing"], "grid");
  ASSERT_EQ(summary["grid_pairing"].size(), 5u);
  for (const nlohmann::json& view : summary["grid_pairing"]) EXPECT_LT(view["residual_px"].get<double>(), 0.2);
  EXPECT_EQ(summary["outlier_views"], nlohmann::json::array());
  EXPECT_EQ(summary["quick_rejected"], nlohmann::json({0, 0, 0, 0, 0}));
}

TEST_F(QlmCalib, ChartFromAPairsFolderWritesReportMetadataAndDeviations) {
  const std::string chart = Path("chart");
  ASSERT_EQ(RunTool("synth chart --out " + chart + " --pairs 5 --seed 4").status, 0);
  const ToolRun run = RunTool("chart --params " + chart + "/params.txt --pairs-dir " + chart + " --report " +
                              Path("report") + " --android-metadata " + Path("meta.json") + " --json " +
                              Path("chart.json") + " --pictures-dir " + Path("pics") + " --pairing nearest");
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_TRUE(Contains(run.out, "pair 1: " + chart + "/pair_0_main.png " + chart + "/pair_0_second.png: board found in both\n"));
  EXPECT_TRUE(Contains(run.out, "pair 5: " + chart + "/pair_4_main.png")) << run.out;
  EXPECT_TRUE(Contains(run.out, "std dev main:     fx ")) << run.out;
  EXPECT_TRUE(Contains(run.out, "report:           " + Path("report") + "/report.json\n")) << run.out;

  const nlohmann::json report = ReadJson(Path("report/report.json"));
  EXPECT_EQ(report["views"].size(), 5u);
  EXPECT_EQ(report["views"][0]["images"], chart + "/pair_0_main.png " + chart + "/pair_0_second.png");
  EXPECT_TRUE(FileExists(Path("report/view_05.png")));
  EXPECT_TRUE(FileExists(Path("report/errors.png")));
  const nlohmann::json summary = ReadJson(Path("chart.json"));
  for (const char* camera : {"main", "second"}) {
    for (const char* name : {"fx", "fy", "cx", "cy", "k1", "k2", "k3", "p1", "p2"}) {
      EXPECT_GT(summary["intrinsic_std_dev"][camera][name].get<double>(), 0.0) << camera << " " << name;
    }
  }
  // nSquareSize counts as millimetres: the 40-unit baseline is about 4 cm.
  const nlohmann::json metadata = ReadJson(Path("meta.json"));
  const nlohmann::json& position = metadata["second"]["android.lens.poseTranslation"];
  EXPECT_NEAR(std::hypot(position[0].get<double>(), position[1].get<double>(), position[2].get<double>()), 0.04, 0.0005);
  EXPECT_EQ(metadata["main"]["android.lens.intrinsicCalibration"][0], summary["K1"][0][0]);
  EXPECT_EQ(summary["pairing"], "nearest");
  EXPECT_EQ(summary["repeated_corner_views"], nlohmann::json::array());
  EXPECT_FALSE(summary.contains("grid_pairing"));
}

// Same camera, no distortion, equal sizes: the last column and row map one
// pixel short of the far sides, so the zoom is the larger of 32/31 and
// 24/23, and the centre pixel stays where it is.
TEST_F(QlmCalib, WarpYuvZoomsAboutTheCentre) {
  std::string frame(64 * 48 * 3 / 2, '\0');
  for (size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<char>(i * 7);
  WriteFile(Path("in.yuv"), frame);
  const ToolRun run = RunTool("warp-yuv --in " + Path("in.yuv") + " --size 64x48 --out " + Path("out.yuv") +
                              " --out-size 64x48 --source-camera 100,100,32,24 --target-camera 100,100,32,24");
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(run.out, "zoom: 1.043478\nwrote " + Path("out.yuv") + " (64x48)\n");
  const std::string out = ReadFile(Path("out.yuv"));
  ASSERT_EQ(out.size(), frame.size());
  EXPECT_EQ(out[24 * 64 + 32], frame[24 * 64 + 32]);
}

// Three frames on two threads: each output frame is the single-frame warp
// of its input frame, in input order, with one progress line.
TEST_F(QlmCalib, WarpYuvFrameSequenceKeepsOrderAndBytes) {
  const std::string options = " --size 64x48 --out-size 64x48 --source-camera 100,100,32,24 "
                              "--target-camera 96,96,32,24 --radial -0.1,0.02,0";
  std::string frames, expected;
  for (int k = 0; k < 3; ++k) {
    std::string frame(64 * 48 * 3 / 2, '\0');
    for (size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<char>(i * 7 + k * 13 + i / 64 * k);
    WriteFile(Path("frame.yuv"), frame);
    ASSERT_EQ(RunTool("warp-yuv --in " + Path("frame.yuv") + " --out " + Path("single.yuv") + options).status, 0);
    expected += ReadFile(Path("single.yuv"));
    frames += frame;
  }
  WriteFile(Path("in.yuv"), frames);
  const ToolRun run = RunTool("warp-yuv --in " + Path("in.yuv") + " --out " + Path("out.yuv") + " --threads 2" + options);
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(run.out, "zoom: 1.081207\n\rframe 1 of 3\rframe 2 of 3\rframe 3 of 3\nwrote " + Path("out.yuv") +
                         " (64x48, 3 frames)\n");
  EXPECT_EQ(ReadFile(Path("out.yuv")), expected);
}

TEST_F(QlmCalib, BadInputsNameTheProblemAndLeaveNoFile) {
  WriteFile(Path("garbage.png"), "not an image");
  WriteFile(Path("short.bin"), "tiny");
  WriteFile(Path("p.txt"), "\nParameterList\n");
  const struct {
    std::string arguments;
    std::string message;
  } cases[] = {
      {"refine --params " + Path("p.txt") + " --record " + Path("missing.bin") + " --out " + Path("out.bin") + " a.png b.png",
       Path("missing.bin") + ": cannot open file"},
      {"refine --params " + Path("p.txt") + " --record " + Path("short.bin") + " --out " + Path("out.bin") + " a.png b.png",
       Path("short.bin") + ": a calibration record holds 15252 bytes, found 4"},
      {"warp-yuv --in " + Path("garbage.png") + " --size 64x4x --out " + Path("out.bin") +
           " --out-size 64x48 --source-camera 1,1,1,1 --target-camera 1,1,1,1",
       "--size: expected WxH with positive integers, got '64x4x'"},
      {"warp-yuv --in " + Path("garbage.png") + " --size 64x48 --out " + Path("out.bin") +
           " --out-size 64x48 --source-camera 1,1,1 --target-camera 1,1,1,1",
       "--source-camera: expected 4 comma-separated numbers, got '1,1,1'"},
      {"warp-yuv --in " + Path("garbage.png") + " --size 64x48 --out " + Path("out.bin") +
           " --out-size 64x48 --source-camera 1,1,1,1 --target-camera 1,1,1,1",
       Path("garbage.png") + ": expected a whole number of 4608-byte frames for 64x48, found 12 bytes"},
      {"warp-yuv --in " + Path("garbage.png") + " --size 2x2 --frames 3 --out " + Path("out.bin") +
           " --out-size 64x48 --source-camera 1,1,1,1 --target-camera 1,1,1,1",
       Path("garbage.png") + ": 3 frames of 2x2 need 18 bytes, found 12 bytes"},
      {"chart --params " + Path("p.txt") + " " + Path("garbage.png") + " " + Path("garbage.png"),
       Path("garbage.png") + ": not an image OpenCV can decode"},
      {"synth scene --out " + Path("s") + " --size 999x1000", "--size: each side must lie in 1000..10000, got '999x1000'"},
      {"chart --params " + Path("p.txt") + " --pairs-dir " + dir.Path(), dir.Path() + ": no NAME_main / NAME_second image pair"},
      {"chart --params " + Path("p.txt") + " --pairs " + Path("p.txt") + " a.png b.png",
       "chart: give the pairs one way: MAIN1 SECOND1 ..., --pairs-dir DIR or --pairs FILE"},
  };
  for (const auto& c : cases) {
    const ToolRun run = RunTool(c.arguments);
    EXPECT_EQ(run.status, 2) << c.arguments << "\n" << run.out;
    EXPECT_EQ(run.out, "qlm-calib: " + c.message + "\n") << c.arguments;
    EXPECT_FALSE(FileExists(Path("out.bin"))) << c.arguments;
  }
}

TEST_F(QlmCalib, ImagesOutsideTheAcceptedSizesAreBadInput) {
  const std::string scene = Path("scene");
  ASSERT_EQ(RunTool("synth scene --out " + scene + " --seed 2").status, 0);
  ASSERT_TRUE(cv::imwrite(Path("narrow.png"), cv::Mat(1000, 999, CV_8UC1, cv::Scalar(9))));
  const ToolRun run = RunTool("refine --params " + scene + "/params.txt --record " + scene + "/record.bin --out " +
                          Path("out.bin") + " " + scene + "/main.png " + Path("narrow.png"));
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.out, "qlm-calib: " + Path("narrow.png") + ": 999x1000 is outside the accepted 1000..10000 pixels per side\n");
  EXPECT_FALSE(FileExists(Path("out.bin")));
  const ToolRun help = RunTool("refine --help");
  EXPECT_EQ(help.status, 0);
  EXPECT_TRUE(Contains(help.out, "Exit status: 0 success, 2 bad input")) << help.out;
}

TEST_F(QlmCalib, FailedChecksExitWithThree) {
  const std::string scene = Path("scene");
  ASSERT_EQ(RunTool("synth scene --out " + scene + " --seed 4").status, 0);
  // A zero offset limit can never be met.
  std::string params = ReadFile(scene + "/params.txt");
  const std::string limit = "nHomographyConstraintOffsetX=40;";
  params.replace(params.find(limit), limit.size(), "nHomographyConstraintOffsetX=0;");
  WriteFile(Path("strict.txt"), params);
  const ToolRun run = RunTool("refine --params " + Path("strict.txt") + " --record " + scene + "/record.bin --json " +
                          Path("r.json") + " " + scene + "/main.png " + scene + "/second.png");
  EXPECT_EQ(run.status, 3) << run.out;
  EXPECT_EQ(ReadJson(Path("r.json"))["constraints_met"], false);
  EXPECT_EQ(ReadJson(Path("r.json"))["refined"], nlohmann::json({{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}}));
}

namespace {

// Every file under dir, except the library's own directory "pics".
std::set<std::string> FilesUnder(const std::string& dir) {
  std::set<std::string> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(dir)) {
    const std::string path = fs::relative(entry.path(), dir).string();
    if (path.rfind("pics", 0) != 0) files.insert(path);
  }
  return files;
}

}  // namespace

TEST_F(QlmCalib, HostileInputsGiveOneMessageAndLeaveNoFile) {
  ASSERT_EQ(RunTool("synth scene --out " + Path("s") + " --seed 5").status, 0);
  const std::string huge = Path("huge.png");  // a PNG header of 30000x30000 and nothing else
  WriteFile(huge, std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\x75\x30\0\0\x75\x30\x08\0\0\0\0", 29));
  ASSERT_TRUE(cv::imwrite(Path("a.png"), cv::Mat(30, 50, CV_8UC1, cv::Scalar(1))));
  ASSERT_TRUE(cv::imwrite(Path("b.png"), cv::Mat(30, 40, CV_8UC1, cv::Scalar(1))));
  fs::create_directories(Path("pics-bad/log.txt"));
  const std::string refine = "refine --params " + Path("s/params.txt") + " --record " + Path("s/record.bin") + " ";
  const std::string pair = " " + Path("s/main.png") + " " + Path("s/second.png");
  const std::string warp = "warp-yuv --in /dev/zero --size 64x48 --out " + Path("o.yuv") +
                           " --source-camera 1,1,1,1 --target-camera 1,1,1,1 --out-size ";
  const std::string longDir = Path(std::string(300, 'd'));
  const struct {
    std::string arguments;
    int status;
    std::string message;
  } cases[] = {
      {"refine --params " + Path("s/params.txt") + " --record /dev/zero --out " + Path("r.bin") + pair, 2,
       "/dev/zero: not a regular file"},
      {warp + "64x48", 2, "/dev/zero: not a regular file"},
      {warp + "2147483646x2147483646", 2, "--out-size: each side must be at most 10000, got '2147483646x2147483646'"},
      {refine + Path("s/main.png") + " " + huge, 2, huge + ": 30000x30000 is larger than the accepted 10000x10000, not decoded"},
      {"chart --params " + Path("s/params.txt") + " " + huge + " " + huge, 2,
       huge + ": 30000x30000 is larger than the accepted 10000x10000, not decoded"},
      {"chart --params " + Path("s/params.txt") + " " + Path("a.png") + " " + Path("a.png") + " " + Path("b.png") + " " +
           Path("a.png"), 2, Path("b.png") + ": 40x30 differs from the 50x30 of " + Path("a.png")},
      {refine + "--pictures-dir " + longDir + pair, 2, longDir + ": cannot create directory"},
      {refine + "--pictures-dir " + Path("pics") + " --out " + Path("r.bin") + " --json " + Path("no/r.json") + pair, 2,
       Path("no/r.json") + ": cannot write file"},
      {refine + "--pictures-dir " + Path("pics-bad") + " --out " + Path("r.bin") + pair, 4,
       Path("pics-bad") + ": the library did not write log.txt"},
  };
  const std::set<std::string> before = FilesUnder(dir.Path());
  for (const auto& c : cases) {
    const ToolRun run = RunTool(c.arguments);
    EXPECT_EQ(run.status, c.status) << c.arguments << "\n" << run.out;
    const size_t last = run.out.rfind('\n', run.out.size() - 2);
    EXPECT_EQ(run.out.substr(last == std::string::npos ? 0 : last + 1), "qlm-calib: " + c.message + "\n");
    EXPECT_EQ(FilesUnder(dir.Path()), before) << c.arguments;
  }
  // A name of 250 characters is written under its own name in a hidden directory.
  const std::string longOut = Path(std::string(246, 'o') + ".yuv");
  WriteFile(Path("in.yuv"), std::string(64 * 48 * 3 / 2, '\0'));
  const ToolRun run = RunTool("warp-yuv --in " + Path("in.yuv") + " --size 64x48 --out " + longOut +
                              " --out-size 64x48 --source-camera 1,1,1,1 --target-camera 1,1,1,1");
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(ReadFile(longOut).size(), 64u * 48u * 3u / 2u);
}
