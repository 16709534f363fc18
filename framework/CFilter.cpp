#include "framework/CFilter.h"

#include <cstring>

#include "framework/FileHandle.h"

CFilter::~CFilter() {
  mThirdParameterList.Clear();
  mSecondParameterList.Clear();
  mParameterList.Clear();
}

bool CFilter::IsReady() { return true; }

void CFilter::StoreName(const char* name) {
  std::snprintf(mName, sizeof(mName), "%s", name);
}

bool CFilter::SetName(const char* name) {
  StoreName(name);
  return Initialize();
}

bool CFilter::ReadSectionHeader(FILE* stream) {
  char word[kParameterNameSize] = {};
  // The width keeps the word inside the buffer; a longer header cannot match.
  if (std::fscanf(stream, "\n%63s\n", word) != 1) word[0] = '\0';
  if (std::strcmp(word, mName) != 0) {
    std::printf("Filter %s find non-matched name %s!!!\n", mName, word);
    return false;
  }
  return true;
}

bool CFilter::LoadParameters(FILE* stream) {
  if (stream == nullptr || !ReadSectionHeader(stream)) return false;
  if (!mParameterList.LoadList(stream)) return false;
  return IsReady();
}

bool CFilter::SaveParameters(FILE* stream) {
  if (stream == nullptr) return false;
  std::fprintf(stream, "\n%s\n", mName);
  mParameterList.SaveList(stream);
  return true;
}

int LoadParametersFromFile(CFilter& filter, const char* path) {
  FileHandle file(std::fopen(path, "rt"));
  if (!file) {
    std::printf("Open file %s fail!!! errcode=%d\n", path, 0);
    return 0;
  }
  if (!filter.LoadParameters(file.get())) {
    std::printf("Filter %s loading parameter fail!!!\n", filter.mName);
    return 0;
  }
  return 1;
}

int SaveParametersToFile(CFilter& filter, const char* path) {
  FileHandle file(std::fopen(path, "wt"));
  if (!file) {
    std::printf("Open file %s fail!!! \n", path);
    return 0;
  }
  if (!filter.SaveParameters(file.get())) {
    std::printf("Filter %s saving parameters fail!!!\n", filter.mName);
    return 0;
  }
  return 1;
}
