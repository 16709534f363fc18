// What a station run answers when it cannot finish: the exit statuses of
// qlm-calib and the errors behind them, each with one message naming the
// file, folder or option at fault.
#pragma once

#include <stdexcept>
#include <string>

// Exit statuses of qlm-calib.
constexpr int kExitSuccess = 0;
constexpr int kExitBadInput = 2;
constexpr int kExitChecksFailed = 3;
constexpr int kExitFilesNotStored = 4;
// verify: the p95 row error is over --max-row-error.
constexpr int kExitRowErrorOverLimit = 5;

// Bad input or any other error (exit status 2).
class StationError : public std::runtime_error {
 public:
  explicit StationError(const std::string& message) : std::runtime_error(message) {}
};

// The run's files could not be stored: the library did not write a file the
// run names, or a file system filled up (exit status 4).
class StorageError : public StationError {
 public:
  using StationError::StationError;
};
