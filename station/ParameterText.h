// A filter's parameter section as the text its parameter files hold, for
// writing it through the run's checked outputs and for checking the copy the
// library writes itself.
#pragma once

#include <string>

class CFilter;

// Loads the parameter file at path into filter; StationError naming path
// when it cannot be loaded.
void LoadParameterFile(CFilter& filter, const std::string& path);
// What SaveParametersToFile writes for filter.
std::string ParameterSectionText(CFilter& filter);
