// The 15252-byte calibration block that callers hand in and get back. The
// library reads or writes only three fields; every other byte is carried
// through unchanged. Fields are accessed by byte copies, so a record may sit
// at any address.
#pragma once

#include <array>
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
static_assert(alignof(CalibrationRecord) == 1, "a record may start at any address");

// The 3x3 homography H_OTP, row by row: h00 h01 h02 h10 h11 h12 h20 h21 h22.
using RecordHomography = std::array<float, 9>;
static_assert(sizeof(RecordHomography) == 36, "H_OTP is nine packed binary32 values");

// fOffsetX: horizontal offset correction in hundredths of a pixel (offset 48).
float RecordOffsetX(const CalibrationRecord& record);
void SetRecordOffsetX(CalibrationRecord& record, float offsetX);

// H_OTP: maps main-image pixels to second-image pixels (offsets 112..147).
RecordHomography RecordHOtp(const CalibrationRecord& record);
void SetRecordHOtp(CalibrationRecord& record, const RecordHomography& hOtp);

// nRefineCount: completed feature-point calibrations modulo 256 (offset 15222).
uint8_t RecordRefineCount(const CalibrationRecord& record);
void SetRecordRefineCount(CalibrationRecord& record, uint8_t count);
