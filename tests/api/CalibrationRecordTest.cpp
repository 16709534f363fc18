#include "api/CalibrationRecord.h"

#include "tests/support/TestPrelude.h"

#include <new>

// Little-endian binary32 fields and one byte at fixed offsets, read and written at any address; the count's
// writer touches its own byte only.
TEST(CalibrationRecord, FieldsAtTheirOffsetsAtAnyAddress) {
  const uint8_t offsetX[] = {0x00, 0x00, 0x7A, 0x43};  // 250.0f
  const uint8_t hOtp[] = {0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0x00, 0x40, 0x00, 0x00, 0x40, 0x40,
                          0x00, 0x00, 0x80, 0x40, 0x00, 0x00, 0xA0, 0x40, 0x00, 0x00, 0xC0, 0x40,
                          0x00, 0x00, 0xE0, 0x40, 0x00, 0x00, 0x00, 0x41, 0x00, 0x00, 0x80, 0xBF};
  std::vector<uint8_t> buffer(kCalibrationRecordSize + 8);
  for (size_t shift = 0; shift < 8; ++shift) {
    SCOPED_TRACE(shift);
    for (size_t i = 0; i < buffer.size(); ++i) buffer[i] = static_cast<uint8_t>(i * 7 + 3);
    std::memcpy(buffer.data() + shift + 48, offsetX, sizeof(offsetX));
    std::memcpy(buffer.data() + shift + 112, hOtp, sizeof(hOtp));
    buffer[shift + 15222] = 0xFE;
    const std::vector<uint8_t> before = buffer;
    auto* record = std::launder(reinterpret_cast<CalibrationRecord*>(buffer.data() + shift));
    EXPECT_EQ(std::make_tuple(RecordOffsetX(*record), RecordHOtp(*record), RecordRefineCount(*record)),
              std::make_tuple(250.0f, RecordHomography{1, 2, 3, 4, 5, 6, 7, 8, -1}, uint8_t{254}));
    SetRecordRefineCount(*record, 0x81);
    EXPECT_EQ(std::exchange(buffer[shift + 15222], 0xFE), 0x81);
    EXPECT_TRUE(buffer == before);
  }
}
