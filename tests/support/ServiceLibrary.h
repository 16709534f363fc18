// The built libQLM_DualCalibration_Service.so loaded with dlopen and called
// through its four mangled symbols, as a factory tool does. Each instance
// loads the library afresh (its globals constructed anew) and unloads it
// when destroyed.
#pragma once

#include <string>

class ServiceLibrary {
 public:
  explicit ServiceLibrary(const char* path = QLM_SERVICE_LIBRARY);
  ~ServiceLibrary();
  ServiceLibrary(const ServiceLibrary&) = delete;
  ServiceLibrary& operator=(const ServiceLibrary&) = delete;

  // True when the library and all four symbols were found; else Error() says why.
  bool Loaded() const { return mLoaded; }
  const std::string& Error() const { return mError; }

  int Version() const { return mVersion(); }
  int Init(const std::string& paramFile, const std::string& recordFile, unsigned char* recordMem,
           int a = 0, int b = 0, int c = 0, int d = 0) const;
  int Process(unsigned char* mainImg, unsigned char* secondImg, int w1, int h1, int w2, int h2,
              int recordSelect) const {
    return mProcess(mainImg, secondImg, w1, h1, w2, h2, recordSelect);
  }
  int Result(unsigned char* out) const { return mResult(out); }

 private:
  using VersionFn = int (*)();
  using InitFn = int (*)(unsigned char*, unsigned char*, unsigned char*, int, int, int, int);
  using ProcessFn = int (*)(unsigned char*, unsigned char*, int, int, int, int, int);
  using ResultFn = int (*)(unsigned char*);

  template <typename Fn>
  Fn Symbol(const char* mangledName);

  void* mHandle = nullptr;
  bool mLoaded = false;
  std::string mError;
  VersionFn mVersion = nullptr;
  InitFn mInit = nullptr;
  ProcessFn mProcess = nullptr;
  ResultFn mResult = nullptr;
};
