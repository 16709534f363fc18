#include "tests/support/ServiceLibrary.h"

#include <dlfcn.h>

#include <vector>

ServiceLibrary::ServiceLibrary(const char* path) : mHandle(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
  if (mHandle == nullptr) {
    mError = dlerror();
    return;
  }
  mVersion = Symbol<VersionFn>("_Z21QLM_Get_Calib_Vertionv");
  mInit = Symbol<InitFn>("_Z14QLM_Calib_INITPhS_S_iiii");
  mProcess = Symbol<ProcessFn>("_Z17QLM_Calib_PROCESSPhS_iiiii");
  mResult = Symbol<ResultFn>("_Z20QLM_Get_Calib_ResultPh");
  mLoaded = mVersion != nullptr && mInit != nullptr && mProcess != nullptr && mResult != nullptr;
}

ServiceLibrary::~ServiceLibrary() {
  if (mHandle != nullptr) dlclose(mHandle);
}

template <typename Fn>
Fn ServiceLibrary::Symbol(const char* mangledName) {
  void* address = dlsym(mHandle, mangledName);
  if (address == nullptr) mError += std::string("missing ") + mangledName + "; ";
  return reinterpret_cast<Fn>(address);
}

int ServiceLibrary::Init(const std::string& paramFile, const std::string& recordFile,
                         unsigned char* recordMem, int a, int b, int c, int d) const {
  std::vector<unsigned char> param(paramFile.c_str(), paramFile.c_str() + paramFile.size() + 1);
  std::vector<unsigned char> record(recordFile.c_str(), recordFile.c_str() + recordFile.size() + 1);
  return mInit(param.data(), record.data(), recordMem, a, b, c, d);
}
