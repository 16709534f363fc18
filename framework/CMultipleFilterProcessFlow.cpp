#include "framework/CMultipleFilterProcessFlow.h"

#include <cstring>

#include "framework/NodeChain.h"

CMultipleFilterProcessFlow::~CMultipleFilterProcessFlow() { ClearFilters(); }

int CMultipleFilterProcessFlow::AddFilter(CFilter* filter, const char* suffix) {
  if (filter == nullptr) return 0;
  if (suffix != nullptr) {
    const size_t used = std::strlen(filter->mName);
    std::snprintf(filter->mName + used, sizeof(filter->mName) - used, "%s", suffix);
  }
  auto* node = new FilterListNode;
  node->filter = filter;
  AppendNode(mFilterHead, mFilterTail, node);
  ++mFilterCount;
  return 1;
}

void CMultipleFilterProcessFlow::ClearFilters() {
  DeleteNodes(mFilterHead, mFilterTail);
  mFilterCount = 0;
}

void CMultipleFilterProcessFlow::ResetFilterLoadedFlags() {
  for (FilterListNode* node = mFilterHead; node != nullptr; node = node->next) node->loaded = 0;
}

int CMultipleFilterProcessFlow::CheckAllFiltersLoaded() {
  int allLoaded = 1;
  for (FilterListNode* node = mFilterHead; node != nullptr; node = node->next) {
    if (!node->loaded) {
      std::printf("Filter %s is missing to load parameters!!!\n", node->filter->mName);
      allLoaded = 0;
    }
  }
  return allLoaded;
}

bool CMultipleFilterProcessFlow::SetNameAndSetup(const char* name) {
  StoreName(name);
  if (!SetupFilters()) return false;
  return Initialize();
}

bool CMultipleFilterProcessFlow::SaveParameters(FILE* stream) {
  if (stream == nullptr) {
    std::printf("Filter %s saving parameters fail!!!\n", mName);
    return false;
  }
  std::fprintf(stream, "\n%s\n", mName);
  mParameterList.SaveList(stream);
  for (FilterListNode* node = mFilterHead; node != nullptr; node = node->next) {
    if (!node->filter->SaveParameters(stream)) return false;
  }
  return true;
}

bool CMultipleFilterProcessFlow::LoadParameters(FILE* stream) {
  if (stream == nullptr || !ReadSectionHeader(stream)) return false;
  if (!mParameterList.LoadList(stream)) return false;
  if (!IsReady()) return false;
  ResetFilterLoadedFlags();
  for (FilterListNode* node = mFilterHead; node != nullptr; node = node->next) {
    if (!node->filter->LoadParameters(stream)) {
      CheckAllFiltersLoaded();
      return false;
    }
    node->loaded = 1;
  }
  return CheckAllFiltersLoaded() == 1;
}
