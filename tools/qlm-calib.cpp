// qlm-calib: runs every capability of the calibration library on files.
// Exit status: 0 success, 2 bad input (message names the file or option),
// 3 a calibration that ran but failed its checks, 4 library files the run
// names were not written (message names the directory).
#include <CLI/CLI.hpp>

#include <cstdio>
#include <functional>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "api/Exports.h"
#include "engine/dualCalibration.h"
#include "station/ParameterText.h"
#include "station/RunOutputs.h"
#include "tools/ChartCommand.h"
#include "tools/DemoCommand.h"
#include "tools/RefineCommand.h"
#include "tools/SynthCommand.h"
#include "tools/ToolInput.h"
#include "tools/VerifyCommand.h"
#include "tools/WarpYuvCommand.h"

namespace {

constexpr char kExitStatusHelp[] =
    "Exit status: 0 success, 2 bad input (missing, unreadable, irregular or oversized file, undecodable image, "
    "size outside what the library accepts, malformed option) or any other error, 3 a calibration that ran but "
    "failed its checks, 4 the library did not write the files the run names in its directory, or a file system "
    "is full, 5 verify's row error over --max-row-error, 128 + N stopped by signal N (SIGINT, SIGTERM). Output files are kept only with status 0 or 3, all "
    "of them; an output that is a symbolic link writes its target.";

int RunVersion() {
  std::printf("library version %d (0x%x)\nqlm-calib %s\n", kLibraryVersion, kLibraryVersion,
              QLM_TOOL_VERSION);
  return kExitSuccess;
}

// Writes the engine's default parameter section to outPath, or to standard output.
int RunParams(const std::string& outPath) {
  auto engine = std::make_unique<dualCalibration>();
  if (outPath.empty()) return engine->SaveParameters(stdout) ? kExitSuccess : kExitBadInput;
  CheckRunFiles({{}, {}, {outPath}, {}});
  const std::string text = ParameterSectionText(*engine);
  WriteBytesAtomically(outPath, text.data(), text.size());
  std::printf("wrote %s\n", outPath.c_str());
  return kExitSuccess;
}

struct Command {
  CLI::App* app;
  std::function<int()> run;
  // Commands that run the library say where its files went.
  bool writesLibraryFiles;
};

// The command's status once its own files are in place; the library's
// files it names are checked first.
int RunCommand(const Command& command, const std::string& picturesDir) {
  int status = kExitSuccess;
  if (command.writesLibraryFiles) {
    const std::string directory = SelectPicturesDir(picturesDir);
    status = command.run();
    std::cout << "library files:    " << directory << std::endl;
    CheckLibraryFiles();
  } else {
    status = command.run();
  }
  CommitOutputs();
  return status;
}

// One line for any error; a message of OpenCV's may end in a newline.
int Fail(const std::string& message, int status) {
  DiscardOutputs();
  std::string line = message;
  while (!line.empty() && line.back() == '\n') line.pop_back();
  std::cout.flush();
  std::cerr << "qlm-calib: " << line << std::endl;
  return status;
}

int RunTool(int argc, char** argv) {
  CLI::App app{"qlm-calib: dual-camera calibration from the command line"};
  app.footer(kExitStatusHelp);
  app.require_subcommand(1);
  std::string picturesDir;
  std::vector<Command> commands;
  auto add = [&](CLI::App& parent, const char* name, const char* description, bool writesLibraryFiles,
                 std::function<int()> run) {
    CLI::App* command = parent.add_subcommand(name, description);
    command->footer(kExitStatusHelp);
    command->add_option("--pictures-dir", picturesDir,
                        "Directory for the files the library writes (default: QLM_PICTURES_DIR, else "
                        "/sdcard/Pictures/ when it exists, else ./qlm-output/)");
    commands.push_back({command, std::move(run), writesLibraryFiles});
    return command;
  };

  add(app, "version", "Print the library and tool versions", false, RunVersion);
  std::string paramsOut;
  add(app, "params", "Write the engine's default parameter section", false, [&] { return RunParams(paramsOut); })
      ->add_option("--out", paramsOut, "Output file (standard output when omitted)");
  RefineOptions refine;
  AddRefineOptions(*add(app, "refine", "Refine the stored homography on one image pair", true,
                        [&] { return RunRefine(refine); }),
                   refine);
  WarpYuvOptions warpYuv;
  AddWarpYuvOptions(*add(app, "warp-yuv", "Undistort and rectify a raw 4:2:0 frame", false,
                         [&] { return RunWarpYuv(warpYuv); }),
                    warpYuv);

  CLI::App* synth = app.add_subcommand("synth", "Write synthetic test data with ground truth");
  synth->require_subcommand(1);
  SynthOptions scene;
  AddSynthSceneOptions(*add(*synth, "scene", "A refine pair, its record, parameters and ground truth", false,
                            [&] { return RunSynthScene(scene); }),
                       scene);
  SynthOptions chart;
  AddSynthChartOptions(*add(*synth, "chart", "Chessboard pairs of a known stereo rig and parameters", false,
                            [&] { return RunSynthChart(chart); }),
                       chart);
  ChartOptions chartRun;
  AddChartOptions(*add(app, "chart", "Chessboard stereo calibration over image pairs", true,
                       [&] { return RunChart(chartRun); }),
                  chartRun);

  VerifyOptions verify;
  AddVerifyOptions(*add(app, "verify", "Check a stereo calibration by the row error of rectified board pairs", false,
                        [&] { return RunVerify(verify); }),
                   verify);

  add(app, "demo", "Generate synthetic data, run refine and chart on it, compare with the truth", true, RunDemo);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const int status = app.exit(error);
    return status == 0 ? kExitSuccess : kExitBadInput;
  }
  for (const Command& command : commands) {
    if (command.app->parsed()) return RunCommand(command, picturesDir);
  }
  return kExitBadInput;
}

}  // namespace

int main(int argc, char** argv) {
  RemoveOutputsOnStopSignals();
  try {
    return RunTool(argc, argv);
  } catch (const StorageError& error) {
    return Fail(error.what(), kExitFilesNotStored);
  } catch (const std::bad_alloc&) {
    return Fail("out of memory", kExitBadInput);
  } catch (const std::exception& error) {
    return Fail(error.what(), kExitBadInput);
  } catch (...) {
    return Fail("unexpected error", kExitBadInput);
  }
}
