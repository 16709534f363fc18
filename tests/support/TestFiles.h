// File helpers shared by the tests: a fresh temporary directory that is also the library's pictures directory,
// whole-file reads and writes, and golden text comparison.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

// A fresh directory under the system's temporary folder, also QLM_PICTURES_DIR, removed with its files.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& Path() const { return mPath; }
  std::string File(const std::string& name) const { return mPath + "/" + name; }

 private:
  std::string mPath;
};

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& contents);
bool FileExists(const std::string& path);
// An anonymous temporary file holding text, rewound; the caller closes it.
FILE* StreamOf(const std::string& text);
// What write puts into a memory stream.
std::string TextWrittenBy(const std::function<void(FILE*)>& write);
// What filter.LoadParameters prints while it reads text; its answer is expected to be `loads`.
template <typename Filter>
std::string PrintedWhileLoading(Filter& filter, const std::string& text, bool loads) {
  FILE* stream = StreamOf(text);
  testing::internal::CaptureStdout();
  EXPECT_EQ(filter.LoadParameters(stream), loads) << text;
  std::fclose(stream);
  return testing::internal::GetCapturedStdout();
}

// Compares actual with tests/data/<relativePath>; a difference fails with the differing lines and their
// neighbours. With QLM_UPDATE_GOLDEN=1 in the environment the file is rewritten instead.
void ExpectGolden(const std::string& actual, const std::string& relativePath);
// The cases of the table tests/data/<relativePath>: one a line, fields split at " | ", blank and "#" lines
// skipped. In a field \n and \t stand for newline and tab, and \<N><c> for N copies of c.
std::vector<std::vector<std::string>> CaseRows(const std::string& relativePath);
// The numbers of a field, split at white space; nan and inf are numbers too, and "-" stands for none.
std::vector<double> Numbers(const std::string& field);

// FNV-1a over size bytes: pins exact bytes that must match on every platform in one literal.
uint64_t Fnv1a(const void* data, size_t size);
