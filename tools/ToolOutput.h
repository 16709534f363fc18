// Output side of the command-line tool: where the library's own files go,
// and result files written under a temporary name and renamed into place so
// that a failed run never leaves a partial file behind.
#pragma once

#include <functional>
#include <string>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

// Chooses the directory for the files the library writes: the option when
// given, else QLM_PICTURES_DIR, else /sdcard/Pictures/ when it exists, else
// ./qlm-output/ (created). Creates it when needed, points QLM_PICTURES_DIR at
// it for the library, and returns it.
std::string SelectPicturesDir(const std::string& option);

// Runs write(temporaryPath), which must create the file, then renames it to
// path. The temporary file sits beside path and keeps its extension, so an
// image writer still picks the right format. Throws ToolError and removes
// the temporary file when write returns false or the rename fails.
void WriteAtomically(const std::string& path, const std::function<bool(const std::string&)>& write);
void WriteBytesAtomically(const std::string& path, const void* data, size_t size);
void WriteJsonAtomically(const std::string& path, const nlohmann::json& document);

// A matrix of any depth as JSON rows of numbers.
nlohmann::json MatrixJson(const cv::Mat& matrix);
