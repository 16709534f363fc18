#include "framework/FilterParameterList.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "framework/NodeChain.h"

namespace {

// Bounded copy that always terminates the destination.
void CopyText(char* destination, size_t size, const char* source) {
  std::snprintf(destination, size, "%s", source != nullptr ? source : "");
}

}  // namespace

int FindNameValue(const char* line, char name[kParameterNameSize], int32_t* value) {
  const char* equals = std::strchr(line, '=');
  if (equals == nullptr) return 0;
  const size_t nameLength = static_cast<size_t>(equals - line);
  if (nameLength >= static_cast<size_t>(kParameterNameSize)) return 0;

  const char* number = equals + 1;
  char* end = nullptr;
  errno = 0;
  const long parsed = std::strtol(number, &end, 10);
  if (end == number || errno == ERANGE || parsed < INT32_MIN || parsed > INT32_MAX) return 0;

  std::memcpy(name, line, nameLength);
  name[nameLength] = '\0';
  *value = static_cast<int32_t>(parsed);
  return 1;
}

FilterParameterList::~FilterParameterList() { Clear(); }

int FilterParameterList::AddParameter(const char* name, int32_t* value, int32_t min,
                                      int32_t max, const char* description) {
  auto* entry = new FilterParameter;
  CopyText(entry->name, sizeof(entry->name), name);
  entry->value = value;
  entry->min = min;
  entry->max = max;
  CopyText(entry->description, sizeof(entry->description), description);
  AppendNode(head, tail, entry);
  ++count;
  return 1;
}

int FilterParameterList::AddArrayParameter(const char* name, int32_t* first, int32_t n,
                                           int32_t min, int32_t max,
                                           const char* description) {
  char entryName[kParameterNameSize];
  std::snprintf(entryName, sizeof(entryName), "%s_0", name);
  AddParameter(entryName, first, min, max, description);
  for (int32_t i = 1; i < n; ++i) {
    std::snprintf(entryName, sizeof(entryName), "%s_%d", name, i);
    AddParameter(entryName, first + i, min, max, nullptr);
  }
  return 1;
}

int FilterParameterList::AddIndexedArrayParameter(const char* name, int32_t* first,
                                                  int32_t index, int32_t n, int32_t min,
                                                  int32_t max, const char* description) {
  char prefix[kParameterNameSize];
  std::snprintf(prefix, sizeof(prefix), "%s_%d", name, index);
  return AddArrayParameter(prefix, first, n, min, max, index == 0 ? description : nullptr);
}

FilterParameter* FilterParameterList::FindEntry(const char* name) const {
  for (FilterParameter* entry = head; entry != nullptr; entry = entry->next) {
    if (std::strcmp(entry->name, name) == 0) return entry;
  }
  return nullptr;
}

const FilterParameter* FilterParameterList::Find(const char* name) const {
  return FindEntry(name);
}

int FilterParameterList::StoreValue(FilterParameter* entry, const char* name, int32_t value) {
  if (entry == nullptr) {
    std::printf("Can not find parameter name %s!!!\n", name);
    return 0;
  }
  if (entry->loaded) {
    std::printf("%s has been loaded more than once!!!\n", name);
    return 0;
  }
  if (value < entry->min || value > entry->max) {
    std::printf("%s value %d is out of range [%d,%d]!!!\n", name, value, entry->min, entry->max);
    return 0;
  }
  *entry->value = value;
  entry->loaded = 1;
  return 1;
}

int FilterParameterList::SetParameterValue(const char* name, int32_t value) {
  return StoreValue(FindEntry(name), name, value);
}

void FilterParameterList::ResetLoadedFlags() {
  for (FilterParameter* entry = head; entry != nullptr; entry = entry->next) entry->loaded = 0;
}

void FilterParameterList::PrintMissing() const {
  for (const FilterParameter* entry = head; entry != nullptr; entry = entry->next) {
    if (!entry->loaded) std::printf("Missing to load %s!!!\n", entry->name);
  }
}

int FilterParameterList::CheckAllLoaded() {
  int allLoaded = 1;
  for (const FilterParameter* entry = head; entry != nullptr; entry = entry->next) {
    if (!entry->loaded) allLoaded = 0;
  }
  PrintMissing();
  return allLoaded;
}

int FilterParameterList::SaveList(FILE* stream) const {
  if (stream == nullptr) return 0;
  for (const FilterParameter* entry = head; entry != nullptr; entry = entry->next) {
    std::fprintf(stream, "%s=%d;\t\tRange=[%d,%d] %s\n", entry->name, *entry->value,
                 entry->min, entry->max, entry->description);
  }
  return 1;
}

int FilterParameterList::LoadList(FILE* stream) {
  if (stream == nullptr) return 0;
  ResetLoadedFlags();
  // A read at end of file keeps the previous line, which is then processed
  // again (normally a second-load failure); the first read finds an empty line.
  char line[kParameterLineSize] = {};
  for (int32_t loadedLines = 0; loadedLines < count; ++loadedLines) {
    if (std::fgets(line, sizeof(line), stream) == nullptr && std::ferror(stream)) line[0] = '\0';
    char name[kParameterNameSize];
    int32_t value = 0;
    if (!FindNameValue(line, name, &value)) {
      std::printf("FindNameValue from %s failed!!!\n", line);
      PrintMissing();
      return 0;
    }
    if (!StoreValue(FindEntry(name), name, value)) {
      PrintMissing();
      return 0;
    }
  }
  return CheckAllLoaded();
}

void FilterParameterList::Clear() {
  DeleteNodes(head, tail);
  count = 0;
}
