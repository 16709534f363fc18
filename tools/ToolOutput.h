// Output side of the command-line tool: where the library's own files go,
// the check that the library wrote the files a run names, and the tool's
// own result files, which wait under temporary names until the whole run
// has succeeded so that a failed run leaves none of them behind.
#pragma once

#include <functional>
#include <string>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include "tools/ToolInput.h"

// Chooses the directory for the files the library writes: the option when
// given, else QLM_PICTURES_DIR, else /sdcard/Pictures/ when it exists, else
// ./qlm-output/ (created). Creates it when needed, points QLM_PICTURES_DIR at
// it for the library, returns it, and starts the run that LibraryFile and
// CheckLibraryFiles speak of.
std::string SelectPicturesDir(const std::string& option);

// Thrown when a file the run names was not written by it (exit status 4).
class MissingLibraryFiles : public ToolError {
 public:
  using ToolError::ToolError;
};

// The path of fileName in the library's directory, named as an output of
// this run: CheckLibraryFiles will require it.
std::string LibraryFile(const char* fileName);
// Throws MissingLibraryFiles, naming the directory and the files, unless
// every file named since SelectPicturesDir is a regular file modified since.
void CheckLibraryFiles();

// Runs write(temporaryPath), which must create the file. The temporary file
// has the name of path (so an image writer still picks the format, and any
// valid name fits) inside a fresh hidden directory beside path, and stays
// there until CommitOutputs. Throws ToolError and removes it when write
// returns false or throws.
void WriteAtomically(const std::string& path, const std::function<bool(const std::string&)>& write);
void WriteBytesAtomically(const std::string& path, const void* data, size_t size);
void WriteJsonAtomically(const std::string& path, const nlohmann::json& document);
// Renames every waiting file into place; throws ToolError naming the first
// that cannot be, after discarding the others.
void CommitOutputs();
// Removes every waiting file with its temporary directory.
void DiscardOutputs();

// A matrix of any depth as JSON rows of numbers.
nlohmann::json MatrixJson(const cv::Mat& matrix);
