// The files one station run writes, committed all together or not at all.
// Before the run: its outputs checked against each other and against its
// inputs. During it: every output written in full, each write and close
// checked, under its own name in a hidden .qlm-XXXXXX folder beside its
// destination. After it: the library's own files checked as this run's, then
// every output moved into place at once; a failure at any point, or SIGINT
// or SIGTERM, leaves every earlier file as it was and no temporary behind.
//
// An output that is a symbolic link is followed: its target is written and
// the link stays. An output that is a character device or a pipe
// (/dev/stdout) is written through at the commit, before the files.
//
// A run belongs to the thread that makes it: its waiting files, created
// folders and library files are that thread's, so threads run at once
// without meeting, and a stop signal removes what every thread has waiting.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include "station/StationError.h"

// Chooses the directory for the files the library writes: the option when
// given, else QLM_PICTURES_DIR, else /sdcard/Pictures/ when it exists, else
// ./qlm-output/ (created). Creates it when needed and returns it.
std::string ChoosePicturesDir(const std::string& option);
// Starts the calling thread's run that LibraryFile and CheckLibraryFiles
// speak of, with the library's files in directory.
void StartLibraryRun(const std::string& directory);
// ChoosePicturesDir, pointed QLM_PICTURES_DIR at for the library (the whole
// process), then StartLibraryRun on it; returns the directory.
std::string SelectPicturesDir(const std::string& option);

// The path of fileName in the library's directory, named as an output of
// this run that CheckLibraryFiles will require: a regular file written since
// the run started and not empty; with expected, holding exactly those bytes.
std::string LibraryFile(const char* fileName);
std::string LibraryFile(const char* fileName, const std::string& expected);
// A file the library appends to: it must have grown in this run.
std::string AppendedLibraryFile(const char* fileName);
// Throws StorageError, naming the directory and the files, unless every
// file named since SelectPicturesDir is as required.
void CheckLibraryFiles();

// What a run reads and writes, by the paths it was given.
struct RunFiles {
  std::vector<std::string> inputs;         // files read
  std::vector<std::string> inputFolders;   // folders read whole
  std::vector<std::string> outputs;        // files written
  std::vector<std::string> outputFolders;  // folders written into
};
// Throws StationError, naming the path, before a run that would write one
// path twice, write over one of its inputs or into an input folder, hold an
// input in an output folder, or write a file over a folder (or the reverse).
void CheckRunFiles(const RunFiles& files);

// Creates folder (and its parents) for this run's outputs; a folder it
// created is removed again, when empty, if the run does not commit.
void CreateOutputFolder(const std::string& folder);

// Runs write(temporaryPath), which must create the file and check its own
// writes. The temporary file has the name of path (so an image writer still
// picks the format, and any valid name fits) and waits for CommitOutputs.
// Throws StationError (StorageError for a full file system) and removes it
// when write returns false or throws.
void WriteAtomically(const std::string& path, const std::function<bool(const std::string&)>& write);
void WriteBytesAtomically(const std::string& path, const void* data, size_t size);
void WriteJsonAtomically(const std::string& path, const nlohmann::json& document);
void WriteStringAtomically(const std::string& path, const std::string& text);
// The image encoded in the format its path's extension names.
void WriteImageAtomically(const std::string& path, const cv::Mat& image);
// Writes size bytes to an open descriptor; throws StorageError naming
// path's folder for a full file system, else StationError naming path.
void WriteAll(int descriptor, const std::string& path, const void* data, size_t size);
// Flushes a regular file to its disk and closes the descriptor, failing as
// WriteAll does.
void SyncAndClose(int descriptor, const std::string& path);
// Puts every waiting file in place: streams first, then the files, each
// replacing what its path held. Throws StationError naming the first that
// cannot be put in place, after restoring what the others replaced.
void CommitOutputs();
// Removes every waiting file with its temporary directory.
void DiscardOutputs();

// From now on SIGINT and SIGTERM remove this run's waiting files and the
// folders it created, and end the process with status 128 + the signal.
// Call before any thread starts: the threads inherit the blocked signals
// that one thread of its own waits for.
void RemoveOutputsOnStopSignals();

// A matrix of any depth as JSON rows of numbers.
nlohmann::json MatrixJson(const cv::Mat& matrix);
