#include "api/CalibrationRecord.h"

#include <cstring>

// The record is little-endian binary32; a plain byte copy is the decoding.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "records are little-endian");

namespace {

template <typename T>
T ReadField(const CalibrationRecord& record, size_t offset) {
  T value;
  std::memcpy(&value, record.bytes + offset, sizeof(T));
  return value;
}

template <typename T>
void WriteField(CalibrationRecord& record, size_t offset, const T& value) {
  std::memcpy(record.bytes + offset, &value, sizeof(T));
}

}  // namespace

float RecordOffsetX(const CalibrationRecord& record) {
  return ReadField<float>(record, kRecordOffsetXOffset);
}

void SetRecordOffsetX(CalibrationRecord& record, float offsetX) {
  WriteField(record, kRecordOffsetXOffset, offsetX);
}

RecordHomography RecordHOtp(const CalibrationRecord& record) {
  return ReadField<RecordHomography>(record, kRecordHOtpOffset);
}

void SetRecordHOtp(CalibrationRecord& record, const RecordHomography& hOtp) {
  WriteField(record, kRecordHOtpOffset, hOtp);
}

uint8_t RecordRefineCount(const CalibrationRecord& record) {
  return ReadField<uint8_t>(record, kRecordRefineCountOffset);
}

void SetRecordRefineCount(CalibrationRecord& record, uint8_t count) {
  WriteField(record, kRecordRefineCountOffset, count);
}
