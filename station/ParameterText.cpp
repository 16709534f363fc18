#include "station/ParameterText.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "framework/CFilter.h"
#include "station/StationError.h"

std::string ParameterSectionText(CFilter& filter) {
  char* buffer = nullptr;
  size_t size = 0;
  FILE* stream = open_memstream(&buffer, &size);
  if (stream == nullptr) throw StationError("out of memory");
  const bool saved = filter.SaveParameters(stream);
  std::fclose(stream);
  const std::unique_ptr<char, decltype(&std::free)> owned(buffer, &std::free);
  if (!saved) throw StationError(std::string(filter.mName) + ": parameters cannot be written");
  return std::string(buffer, size);
}

void LoadParameterFile(CFilter& filter, const std::string& path) {
  if (LoadParametersFromFile(filter, path.c_str()) != 1) throw StationError(path + ": parameter file could not be loaded");
}
