// Base of every processing unit: a name that is also the unit's section
// header in parameter files, and the parameter lists that the framework
// saves and loads. Concrete classes register their parameters in Initialize().
#pragma once

#include <cstdio>

#include "framework/FilterParameterList.h"

class CFilter {
 public:
  CFilter() = default;
  CFilter(const CFilter&) = delete;
  CFilter& operator=(const CFilter&) = delete;

  // Registers the parameters and stores their defaults.
  virtual bool Initialize() = 0;
  virtual bool IsReady();
  // Copies name into mName (bounded), then runs Initialize(). Calling it a
  // second time registers every parameter again; loads then fail as duplicates.
  virtual bool SetName(const char* name);
  // Reads the "\n<name>\n" header, then this filter's parameter lines.
  // Prints "Filter %s find non-matched name %s!!!" when the header differs.
  virtual bool LoadParameters(FILE* stream);
  // Writes the header and the parameter lines; false on a null stream.
  virtual bool SaveParameters(FILE* stream);

  char mName[kParameterNameSize] = {};
  FilterParameterList mParameterList;
  FilterParameterList mSecondParameterList;
  FilterParameterList mThirdParameterList;

 protected:
  // Filters are destroyed through their own class, never through CFilter.
  ~CFilter();
  // Copies text into mName, bounded to the buffer.
  void StoreName(const char* name);
  // Reads one whitespace-delimited word and compares it with mName.
  bool ReadSectionHeader(FILE* stream);
};

// File-level load: opens path with "rt" and loads the filter's section.
// Prints "Open file %s fail!!! errcode=%d" (always 0) when it cannot open.
int LoadParametersFromFile(CFilter& filter, const char* path);
// File-level save: opens path with "wt" (create or truncate).
int SaveParametersToFile(CFilter& filter, const char* path);
