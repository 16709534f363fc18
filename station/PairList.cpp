#include "station/PairList.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "station/InputFiles.h"

namespace fs = std::filesystem;

namespace {

constexpr uintmax_t kMaxListFileBytes = 1u << 20;
constexpr char kMainSuffix[] = "_main";
constexpr char kSecondSuffix[] = "_second";

bool IsDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

// Natural order: runs of digits compare by value, everything else by character.
bool NaturalLess(const std::string& a, const std::string& b) {
  size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    if (!IsDigit(a[i]) || !IsDigit(b[j])) {
      if (a[i] != b[j]) return a[i] < b[j];
      ++i, ++j;
      continue;
    }
    size_t endA = i, endB = j;
    while (endA < a.size() && IsDigit(a[endA])) ++endA;
    while (endB < b.size() && IsDigit(b[endB])) ++endB;
    const size_t startA = std::min(a.find_first_not_of('0', i), endA);
    const size_t startB = std::min(b.find_first_not_of('0', j), endB);
    const std::string runA = a.substr(startA, endA - startA), runB = b.substr(startB, endB - startB);
    if (runA.size() != runB.size()) return runA.size() < runB.size();
    if (runA != runB) return runA < runB;
    i = endA, j = endB;
  }
  return a.size() - i < b.size() - j;
}

bool EndsWith(const std::string& text, const std::string& suffix) {
  return text.size() > suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

struct PairFiles {
  std::string main, second;
};

// NAME + EXT -> the pair's two paths, from the folder's regular files.
std::map<std::string, PairFiles> PairFilesIn(const std::string& directory) {
  std::error_code error;
  std::map<std::string, PairFiles> pairs;
  for (fs::directory_iterator entry(directory, error); !error && entry != fs::directory_iterator();
       entry.increment(error)) {
    if (!entry->is_regular_file(error)) continue;
    const fs::path& path = entry->path();
    const std::string stem = path.stem().string();
    const std::string key = path.extension().string();
    if (EndsWith(stem, kMainSuffix)) {
      pairs[stem.substr(0, stem.size() - sizeof(kMainSuffix) + 1) + key].main = path.string();
    } else if (EndsWith(stem, kSecondSuffix)) {
      pairs[stem.substr(0, stem.size() - sizeof(kSecondSuffix) + 1) + key].second = path.string();
    }
  }
  if (error) throw StationError(directory + ": cannot read folder");
  return pairs;
}

std::string ResolvedFrom(const fs::path& folder, const std::string& path) {
  const fs::path given(path);
  return given.is_absolute() ? path : (folder / given).string();
}

}  // namespace

std::vector<std::string> PairsFromDirectory(const std::string& directory) {
  std::vector<std::pair<std::string, PairFiles>> pairs;
  for (const auto& [name, files] : PairFilesIn(directory)) {
    if (files.second.empty()) throw StationError(files.main + ": no matching " + kSecondSuffix + " image");
    if (files.main.empty()) throw StationError(files.second + ": no matching " + kMainSuffix + " image");
    pairs.emplace_back(name, files);
  }
  if (pairs.empty()) throw StationError(directory + ": no NAME_main / NAME_second image pair");
  std::sort(pairs.begin(), pairs.end(), [](const auto& a, const auto& b) { return NaturalLess(a.first, b.first); });
  std::vector<std::string> images;
  for (const auto& pair : pairs) images.insert(images.end(), {pair.second.main, pair.second.second});
  return images;
}

std::vector<std::string> PairsFromListFile(const std::string& path) {
  RequireReadableFile(path, kMaxListFileBytes);
  std::ifstream in(path);
  const fs::path folder = fs::path(path).parent_path();
  std::vector<std::string> images;
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    // A byte-order mark, as editors save UTF-8, opens the first line.
    if (number == 1 && line.rfind("\xEF\xBB\xBF", 0) == 0) line.erase(0, 3);
    std::istringstream fields(line);
    std::string main, second, extra;
    if (!(fields >> main) || main[0] == '#') continue;
    if (!(fields >> second) || (fields >> extra)) {
      throw StationError(path + ":" + std::to_string(number) + ": expected MAIN SECOND, got '" + line + "'");
    }
    images.insert(images.end(), {ResolvedFrom(folder, main), ResolvedFrom(folder, second)});
  }
  if (images.empty()) throw StationError(path + ": no image pair");
  return images;
}

std::vector<std::string> ChartImagePaths(const std::vector<std::string>& images, const std::string& pairsDir,
                                         const std::string& pairsFile) {
  if (images.empty() + pairsDir.empty() + pairsFile.empty() != 2) {
    throw StationError("chart: give the pairs one way: MAIN1 SECOND1 ..., --pairs-dir DIR or --pairs FILE");
  }
  if (!pairsDir.empty()) return PairsFromDirectory(pairsDir);
  if (!pairsFile.empty()) return PairsFromListFile(pairsFile);
  return images;
}

void RequireImagePairs(const std::vector<std::string>& images, const std::string& command) {
  if (images.size() < 2 || images.size() % 2 != 0) {
    throw StationError(command + ": expected image pairs MAIN1 SECOND1 [MAIN2 SECOND2 ...], got " +
                       std::to_string(images.size()) + " files");
  }
}
