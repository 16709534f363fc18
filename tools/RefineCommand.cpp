#include "tools/RefineCommand.h"

#include <cstdio>
#include <iostream>
#include <vector>

#include <opencv2/imgcodecs.hpp>

#include "api/CalibrationRun.h"
#include "api/Globals.h"
#include "station/ParameterText.h"
#include "station/RunOutputs.h"
#include "tools/ToolInput.h"

namespace {

constexpr int kMinImageSidePx = 1000;

void CheckImageSize(const cv::Mat& image, const std::string& path) {
  if (image.cols < kMinImageSidePx || image.cols > kMaxImageSidePx || image.rows < kMinImageSidePx ||
      image.rows > kMaxImageSidePx) {
    throw StationError(path + ": " + std::to_string(image.cols) + "x" + std::to_string(image.rows) +
                    " is outside the accepted 1000..10000 pixels per side");
  }
}

std::vector<unsigned char> ReadCallerRecord(const std::string& path) {
  std::vector<unsigned char> record = ReadBinaryFile(path, kCalibrationRecordSize);
  if (record.size() != kCalibrationRecordSize) {
    throw StationError(path + ": a calibration record holds 15252 bytes, found " + std::to_string(record.size()));
  }
  return record;
}

nlohmann::json ReportJson(int code, const FeaturePointReport& report, int refineCount) {
  return {{"code", code},
          {"keypoints_main", report.keypoints1},
          {"keypoints_second", report.keypoints2},
          {"good_matches", report.goodMatches},
          {"estimate", MatrixJson(report.estimate)},
          {"refined", MatrixJson(report.refinedH)},
          {"constraints_met", report.constraintsMet},
          {"refine_count", refineCount}};
}

void PrintSummary(int code, const FeaturePointReport& report, int refineCount) {
  std::cout << "\n== refine summary\n"
            << "code:             " << code << " (" << RefineCodeMeaning(code) << ")\n"
            << "keypoints:        main " << report.keypoints1 << ", second " << report.keypoints2 << "\n"
            << "good matches:     " << report.goodMatches << "\n";
  if (!report.estimate.empty()) std::cout << "estimate:\n" << report.estimate << "\n";
  if (!report.refinedH.empty()) std::cout << "refined:\n" << report.refinedH << "\n";
  std::cout << "constraints met:  " << (report.constraintsMet ? "yes" : "no") << "\n"
            << "refine count:     " << refineCount << "\n";
}

}  // namespace

const char* RefineCodeMeaning(int code) {
  switch (code) {
    case 1: return "estimate computed";
    case 0: return "too few keypoints or good matches";
    case -1: return "parameter file could not be loaded";
    case -2: return "record file could not be opened";
    case -4: return "an image is missing";
    case -5: return "an image size is outside 1000..10000";
    default: return "unknown code";
  }
}

void AddRefineOptions(CLI::App& command, RefineOptions& options) {
  command.add_option("--params", options.params, "Parameter file (section ParameterList)")->required();
  command.add_option("--record", options.record, "Caller record (15252 bytes)")->required();
  command.add_option("--file-record", options.fileRecord, "Factory record file handed to INIT");
  command.add_option("--select", options.select, "Starting record: caller or file")
      ->check(CLI::IsMember({"caller", "file"}))
      ->capture_default_str();
  command.add_option("--out", options.out, "Result record file to write");
  command.add_option("--json", options.json, "Summary as JSON");
  command.add_option("--save-matches", options.saveMatches, "Image of the good matches (PNG)");
  command.add_option("MAIN", options.mainImage, "Main camera image")->required();
  command.add_option("SECOND", options.secondImage, "Second camera image")->required();
}

RefineOutcome Refine(const RefineOptions& options) {
  const bool fromFile = options.select == "file";
  if (fromFile && options.fileRecord.empty()) throw StationError("--select file: needs --file-record");
  if (!options.fileRecord.empty()) RequireReadableFile(options.fileRecord, kCalibrationRecordSize);
  std::vector<unsigned char> callerRecord = ReadCallerRecord(options.record);
  RequireReadableFile(options.params, kMaxTextFileBytes);
  const cv::Mat mainImage = ReadGrayImage(options.mainImage);
  const cv::Mat secondImage = ReadGrayImage(options.secondImage);
  CheckImageSize(mainImage, options.mainImage);
  CheckImageSize(secondImage, options.secondImage);

  CheckRunFiles({{options.params, options.record, options.fileRecord, options.mainImage, options.secondImage},
                 {},
                 {options.out, options.json, options.saveMatches},
                 {}});
  // INIT and PROCESS append to the log and INIT writes the parameters in use.
  AppendedLibraryFile("log.txt");
  const std::string params = options.params;
  const std::string fileRecord = options.fileRecord;
  const int init = InitCalibrationRun(g_dualCalib, reinterpret_cast<const unsigned char*>(params.c_str()),
                                      reinterpret_cast<const unsigned char*>(fileRecord.c_str()),
                                      callerRecord.data(), 0, 0, 0, 0);
  if (init == -1) throw StationError(options.params + ": " + RefineCodeMeaning(init));
  if (init == -2 && fromFile) throw StationError(options.fileRecord + ": " + RefineCodeMeaning(init));

  RefineOutcome outcome;
  FeaturePointReport& report = outcome.report;
  report.keepMatchesImage = !options.saveMatches.empty();
  outcome.code = ProcessImagePair(g_dualCalib, mainImage.data, secondImage.data, mainImage.cols, mainImage.rows,
                                  secondImage.cols, secondImage.rows, fromFile ? 1 : 0, &report);
  LibraryFile("defaultParameters.txt", ParameterSectionText(g_dualCalib));
  const CalibrationRecord& result = g_dualCalib.mResultRecord;
  outcome.refineCount = RecordRefineCount(result);
  PrintSummary(outcome.code, report, outcome.refineCount);

  if (!options.out.empty()) {
    WriteBytesAtomically(options.out, result.bytes, sizeof(result.bytes));
    std::cout << "result record:    " << options.out << "\n";
  }
  if (!options.json.empty()) {
    WriteJsonAtomically(options.json, ReportJson(outcome.code, report, outcome.refineCount));
  }
  if (!options.saveMatches.empty() && !report.matchesImage.empty()) {
    WriteImageAtomically(options.saveMatches, report.matchesImage);
  }
  return outcome;
}

int RunRefine(const RefineOptions& options) {
  const RefineOutcome outcome = Refine(options);
  return outcome.code == 1 && outcome.report.constraintsMet ? kExitSuccess : kExitChecksFailed;
}
