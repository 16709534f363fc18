// Named 32-bit integer parameters with inclusive ranges, bound to members of
// their owner, and the "name=value" text format in which a filter's
// parameters are saved and loaded. Every message goes to standard output.
#pragma once

#include <cstdint>
#include <cstdio>

constexpr int kParameterNameSize = 64;
constexpr int kParameterDescriptionSize = 256;
constexpr int kParameterLineSize = 1024;

// One entry of a FilterParameterList; the bound integer is never owned.
struct FilterParameter {
  uint8_t loaded = 0;
  char name[kParameterNameSize] = {};
  int32_t* value = nullptr;
  int32_t min = 0;
  int32_t max = 0;
  char description[kParameterDescriptionSize] = {};
  FilterParameter* next = nullptr;
};

// Splits "name=value" at the first '='. The value is read like "%d": leading
// blanks skipped, optional sign, decimal digits, anything after ignored.
// Returns 0 for an empty line, a line without '=', no number, a number that
// does not fit 32 bits, or a name longer than the name buffer; else 1.
int FindNameValue(const char* line, char name[kParameterNameSize], int32_t* value);

// Singly linked list of parameters in registration order, which is also the
// order of the lines in a saved file. Operations return 1 or 0.
class FilterParameterList {
 public:
  FilterParameterList() = default;
  ~FilterParameterList();
  FilterParameterList(const FilterParameterList&) = delete;
  FilterParameterList& operator=(const FilterParameterList&) = delete;

  // Appends one entry; does not touch the bound integer. Returns 1.
  int AddParameter(const char* name, int32_t* value, int32_t min, int32_t max,
                   const char* description);
  // Registers n consecutive integers as "name_0" .. "name_<n-1>". A count
  // below 2 still registers "name_0": intended. Returns 1.
  int AddArrayParameter(const char* name, int32_t* first, int32_t n, int32_t min,
                        int32_t max, const char* description);
  // Registers one row of a table as "name_<index>_0" ..; the description
  // goes with row 0 only.
  int AddIndexedArrayParameter(const char* name, int32_t* first, int32_t index, int32_t n,
                               int32_t min, int32_t max, const char* description);

  // Stores value into the first entry called name, with the messages of the
  // loader for an unknown name, a second load and an out-of-range value.
  int SetParameterValue(const char* name, int32_t value);
  void ResetLoadedFlags();
  // Prints "Missing to load %s!!!" per entry not loaded; 1 when none.
  int CheckAllLoaded();

  // Writes one "%s=%d;\t\tRange=[%d,%d] %s\n" line per entry. 0 on a null stream.
  int SaveList(FILE* stream) const;
  // Reads exactly Count() lines in any order of names. Returns 1 when every
  // parameter was read exactly once, 0 otherwise; each failure prints its
  // line and the missing list, and leaves earlier values set.
  int LoadList(FILE* stream);
  void Clear();

  int32_t Count() const { return count; }
  FilterParameter* Head() const { return head; }
  const FilterParameter* Find(const char* name) const;

 private:
  FilterParameter* FindEntry(const char* name) const;
  int StoreValue(FilterParameter* entry, const char* name, int32_t value);
  void PrintMissing() const;

  int32_t count = 0;
  FilterParameter* head = nullptr;
  FilterParameter* tail = nullptr;
};
