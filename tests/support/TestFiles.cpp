#include "tests/support/TestFiles.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "qlm-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) ADD_FAILURE() << "mkdtemp failed for " << pattern;
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
  std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;
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
    return WriteFile(path, actual);
  }
  ASSERT_TRUE(FileExists(path)) << "missing golden file " << path;
  // GoogleTest shows a multi-line difference as a unified diff with two lines of context.
  EXPECT_EQ(ReadFile(path), actual) << relativePath;
}

namespace {

std::string Unescaped(const std::string& field) {
  std::string text;
  for (size_t i = 0; i < field.size(); ++i) {
    if (field[i] != '\\' || i + 1 == field.size()) {
      text += field[i];
    } else if (std::isdigit(static_cast<unsigned char>(field[++i]))) {
      size_t digits = 0;
      const int copies = std::stoi(field.substr(i), &digits);
      text.append(static_cast<size_t>(copies), field.at(i += digits));
    } else {
      text += field[i] == 'n' ? '\n' : field[i] == 't' ? '\t' : field[i];
    }
  }
  return text;
}

}  // namespace

std::vector<std::vector<std::string>> CaseRows(const std::string& relativePath) {
  std::istringstream lines(ReadFile(std::string(QLM_TEST_DATA_DIR) + "/" + relativePath));
  std::vector<std::vector<std::string>> rows;
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] == '#') continue;
    rows.emplace_back();
    for (size_t start = 0, end = 0; end != std::string::npos; start = end + 3) {
      end = line.find(" | ", start);
      rows.back().push_back(Unescaped(line.substr(start, end - start)));
    }
  }
  EXPECT_FALSE(rows.empty()) << "no cases in " << relativePath;
  return rows;
}

std::vector<double> Numbers(const std::string& field) {
  std::istringstream words(field);
  std::vector<double> numbers;
  for (std::string word; words >> word;)
    if (word != "-") numbers.push_back(std::stod(word));
  return numbers;
}

uint64_t Fnv1a(const void* data, size_t size) {
  uint64_t hash = 14695981039346656037ull;
  for (size_t i = 0; i < size; ++i) hash = (hash ^ static_cast<const uint8_t*>(data)[i]) * 1099511628211ull;
  return hash;
}
