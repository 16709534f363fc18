// The 15252-byte calibration block that callers hand in and get back. The
// library reads or writes only three fields; every other byte is carried
// through unchanged. Fields are accessed by byte copies, so a record may sit
// at any address.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr size_t kCalibrationRecordSize = 15252;
constexpr size_t kRecordOffsetXOffset = 48;
constexpr size_t kRecordHOtpOffset = 112;
constexpr size_t kRecordRefineCountOffset = 15222;

struct CalibrationRecord {
  uint8_t bytes[kCalibrationRecordSize];
};
static_assert(sizeof(CalibrationRecord) == kCalibrationRecordSize, "record must stay 15252 bytes");
