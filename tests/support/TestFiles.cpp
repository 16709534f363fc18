#include "tests/support/TestFiles.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace {

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::string DescribeFirstDifference(const std::string& expected, const std::string& actual) {
  const std::vector<std::string> want = SplitLines(expected);
  const std::vector<std::string> got = SplitLines(actual);
  size_t line = 0;
  while (line < want.size() && line < got.size() && want[line] == got[line]) ++line;
  std::ostringstream out;
  out << "first difference at line " << line + 1 << "\n";
  const size_t from = line >= 2 ? line - 2 : 0;
  for (size_t i = from; i <= line + 2; ++i) {
    out << "  expected " << i + 1 << ": " << (i < want.size() ? want[i] : "<end>") << "\n";
    out << "  actual   " << i + 1 << ": " << (i < got.size() ? got[i] : "<end>") << "\n";
  }
  return out.str();
}

}  // namespace

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "qlm-test-XXXXXX").string();
  const char* made = mkdtemp(pattern.data());
  if (made == nullptr) ADD_FAILURE() << "mkdtemp failed for " << pattern;
  mPath = pattern;
  setenv("QLM_PICTURES_DIR", mPath.c_str(), 1);
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(mPath, ignored);
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream contents;
  contents << in.rdbuf();
  return contents.str();
}

void WriteFile(const std::string& path, const std::string& contents) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << contents;
}

bool FileExists(const std::string& path) { return std::filesystem::exists(path); }

FILE* StreamOf(const std::string& text) {
  FILE* stream = std::tmpfile();
  std::fwrite(text.data(), 1, text.size(), stream);
  std::rewind(stream);
  return stream;
}

std::string TextWrittenBy(const std::function<void(FILE*)>& write) {
  char* data = nullptr;
  size_t size = 0;
  FILE* stream = open_memstream(&data, &size);
  write(stream);
  std::fclose(stream);
  std::string text(data, size);
  std::free(data);
  return text;
}

void ExpectGolden(const std::string& actual, const std::string& relativePath) {
  const std::string path = std::string(QLM_TEST_DATA_DIR) + "/" + relativePath;
  const char* update = std::getenv("QLM_UPDATE_GOLDEN");
  if (update != nullptr && std::string(update) == "1") {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    WriteFile(path, actual);
    return;
  }
  ASSERT_TRUE(FileExists(path)) << "missing golden file " << path;
  const std::string expected = ReadFile(path);
  EXPECT_TRUE(expected == actual) << relativePath << ": " << DescribeFirstDifference(expected, actual);
}

uint64_t Fnv1a(const void* data, size_t size, uint64_t hash) {
  for (size_t i = 0; i < size; ++i) hash = (hash ^ static_cast<const uint8_t*>(data)[i]) * 1099511628211ull;
  return hash;
}
