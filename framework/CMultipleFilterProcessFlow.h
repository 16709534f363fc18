// A filter made of member filters, saved and loaded as one file: the flow's
// own section followed by one section per member, in member order. The flow
// does not own its members.
#pragma once

#include <cstdint>
#include <cstdio>

#include "framework/CFilter.h"

struct FilterListNode {
  CFilter* filter = nullptr;
  uint8_t loaded = 0;
  FilterListNode* next = nullptr;
};

class CMultipleFilterProcessFlow : public CFilter {
 public:
  CMultipleFilterProcessFlow() = default;

  bool LoadParameters(FILE* stream) override;
  bool SaveParameters(FILE* stream) override;
  // The concrete flow adds its member filters here.
  virtual bool SetupFilters() = 0;
  // Names the flow, builds its members, then registers its own parameters.
  virtual bool SetNameAndSetup(const char* name);

  // Appends a member; a suffix is appended to the member's own name so that
  // two instances of one class get distinct sections. 0 for a null filter.
  int AddFilter(CFilter* filter, const char* suffix);
  void ClearFilters();
  void ResetFilterLoadedFlags();
  // Prints "Filter %s is missing to load parameters!!!" per member not loaded.
  int CheckAllFiltersLoaded();

  int32_t FilterCount() const { return mFilterCount; }

 protected:
  ~CMultipleFilterProcessFlow();

 private:
  int32_t mFilterCount = 0;
  FilterListNode* mFilterHead = nullptr;
  FilterListNode* mFilterTail = nullptr;
};
