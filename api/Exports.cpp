#include "api/Exports.h"

#include "api/Globals.h"

int QLM_Get_Calib_Vertion() { return kLibraryVersion; }
