#include "api/CalibrationRecord.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <vector>

namespace {

// Every byte different from its neighbours, so a stray write shows.
void FillPattern(CalibrationRecord& record) {
  for (size_t i = 0; i < kCalibrationRecordSize; ++i)
    record.bytes[i] = static_cast<uint8_t>(i * 7 + 3);
}

void ExpectBytes(const CalibrationRecord& record, size_t offset,
                 const std::vector<uint8_t>& expected) {
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(record.bytes[offset + i], expected[i]) << "byte " << offset + i;
  }
}

}  // namespace

TEST(CalibrationRecord, ReadsTheThreeFieldsAtTheirOffsets) {
  CalibrationRecord record = {};
  const uint8_t offsetX[] = {0x00, 0x00, 0x7A, 0x43};  // 250.0f
  std::memcpy(record.bytes + 48, offsetX, sizeof(offsetX));
  const uint8_t hOtp[] = {0x00, 0x00, 0x80, 0x3F,   // 1.0f
                          0x00, 0x00, 0x00, 0x40,   // 2.0f
                          0x00, 0x00, 0x40, 0x40,   // 3.0f
                          0x00, 0x00, 0x80, 0x40,   // 4.0f
                          0x00, 0x00, 0xA0, 0x40,   // 5.0f
                          0x00, 0x00, 0xC0, 0x40,   // 6.0f
                          0x00, 0x00, 0xE0, 0x40,   // 7.0f
                          0x00, 0x00, 0x00, 0x41,   // 8.0f
                          0x00, 0x00, 0x80, 0xBF};  // -1.0f
  std::memcpy(record.bytes + 112, hOtp, sizeof(hOtp));
  record.bytes[15222] = 0xFE;

  EXPECT_EQ(RecordOffsetX(record), 250.0f);
  EXPECT_EQ(RecordHOtp(record), (RecordHomography{1, 2, 3, 4, 5, 6, 7, 8, -1}));
  EXPECT_EQ(RecordRefineCount(record), 254);
}

TEST(CalibrationRecord, WritersChangeOnlyTheirOwnBytes) {
  CalibrationRecord original;
  FillPattern(original);
  CalibrationRecord record = original;
  SetRecordOffsetX(record, -1.5f);
  SetRecordHOtp(record, RecordHomography{0.5f, 0, 0, 0, 0, 0, 0, 0, 2.0f});
  SetRecordRefineCount(record, 0x81);

  ExpectBytes(record, 48, {0x00, 0x00, 0xC0, 0xBF});
  ExpectBytes(record, 112, {0x00, 0x00, 0x00, 0x3F});
  ExpectBytes(record, 144, {0x00, 0x00, 0x00, 0x40});
  ExpectBytes(record, 15222, {0x81});
  for (size_t i = 0; i < kCalibrationRecordSize; ++i) {
    const bool field = (i >= 48 && i < 52) || (i >= 112 && i < 148) || i == 15222;
    if (!field) {
      ASSERT_EQ(record.bytes[i], original.bytes[i]) << "byte " << i;
    }
  }
}

TEST(CalibrationRecord, FieldsWorkAtAnyAddress) {
  std::vector<uint8_t> buffer(kCalibrationRecordSize + 8);
  for (size_t shift = 1; shift < 8; ++shift) {
    CalibrationRecord* record = new (buffer.data() + shift) CalibrationRecord();
    SetRecordOffsetX(*record, 12.25f);
    SetRecordHOtp(*record, RecordHomography{1, 0, 3.5f, 0, 1, -7, 0, 0, 1});
    SetRecordRefineCount(*record, 9);
    EXPECT_EQ(RecordOffsetX(*record), 12.25f) << "shift " << shift;
    EXPECT_EQ(RecordHOtp(*record)[2], 3.5f) << "shift " << shift;
    EXPECT_EQ(RecordHOtp(*record)[5], -7.0f) << "shift " << shift;
    EXPECT_EQ(RecordRefineCount(*record), 9) << "shift " << shift;
    EXPECT_EQ(buffer[shift + 15222], 9) << "shift " << shift;
  }
}
