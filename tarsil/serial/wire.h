// The byte stream between host and glove: commands, identity frame, data packets, blocks. Every offset and
// size of the format stands here and nowhere else. Numbers of more than one byte are little-endian.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace tarsil::detail::wire {

// Commands, host to glove: one byte each.
inline constexpr std::uint8_t kResetCommand = 0xFF;  // the glove answers with its identity frame
inline constexpr std::uint8_t kStartCommand = 0xA5;  // the glove sends data packets from now on

// Identity frame: marker, 8 bytes for the device's own use, serial text, firmware version, check byte.
// Offsets behind the text count from its end.
inline constexpr std::array<std::uint8_t, 4> kIdentityMarker{0xC1, 0x40, 0x52, 0x53};
inline constexpr std::size_t kSerialLengthOffset = 12;
inline constexpr std::size_t kSerialOffset = 13;
inline constexpr std::size_t kFirmwareMajorAfterSerial = 0;
inline constexpr std::size_t kFirmwareMinorAfterSerial = 1;
inline constexpr std::size_t kCheckAfterSerial = 2;
inline constexpr std::size_t kIdentityFixedSize = 16;  // all but the serial text

// Data packet: header, then the payload.
inline constexpr std::uint8_t kMagic0 = 0x01;
inline constexpr std::uint8_t kMagic1 = 0x02;
inline constexpr std::size_t kSideOffset = 2;  // 0 is the right hand, anything else the left one
inline constexpr std::size_t kTypeOffset = 3;
inline constexpr std::size_t kCounterOffset = 5;
inline constexpr std::size_t kPayloadLengthOffset = 7;
inline constexpr std::size_t kPacketHeaderSize = 9;
inline constexpr std::size_t kMaxPayload = 4096;
inline constexpr std::uint8_t kSensorDataType = 1;

// Payload of a sensor data packet: the number of blocks, then the blocks back to back.
inline constexpr std::size_t kBlockCountOffset = 0;
inline constexpr std::size_t kFirstBlockOffset = 1;
inline constexpr std::size_t kMinPayload = 4;  // a shorter one decodes to nothing

// Block: header, samples of signed 16-bit values, trailer.
inline constexpr std::uint8_t kJointKind = 0x10;
inline constexpr std::uint8_t kInertialKind = 0x20;
inline constexpr std::uint8_t kPressureKind = 0x30;
inline constexpr std::size_t kKindOffset = 0;
inline constexpr std::size_t kSegmentOffset = 1;  // in its high four bits
inline constexpr std::size_t kSampleCountOffset = 2;
inline constexpr std::size_t kBlockPrefixSize =
    3;  // kind, segment, sample count: what must remain to look at a block
inline constexpr std::size_t kBlockHeaderSize = 13;
inline constexpr std::size_t kBlockTrailerSize = 6;
inline constexpr std::size_t kJointSampleSize = 8;
inline constexpr std::size_t kInertialSampleSize = 12;
inline constexpr std::size_t kPressureSampleSize = 12;
inline constexpr std::size_t kStatusLoInTrailer = 0;
inline constexpr std::size_t kStatusHiInTrailer = 3;

// The hand: five finger segments, thumb to pinky.
inline constexpr std::size_t kSegments = 5;
inline constexpr std::size_t kJointsPerSegment = 4;
inline constexpr std::size_t kPadsPerSegment = 6;
inline constexpr std::size_t kAxesPerSegment = 6;  // acceleration x, y, z, then rate x, y, z
inline constexpr std::size_t kJoints = kSegments * kJointsPerSegment;
inline constexpr std::size_t kPads = kSegments * kPadsPerSegment;

// Units: every raw value is in hundredths; joint angles are hundredths of a degree.
inline constexpr float kHundredths = 100.0F;
inline constexpr float kRadiansPerDegree = 0.017453292F;

// Reading.
inline constexpr std::size_t kMaxRead = 4096;  // bytes asked for at once

[[nodiscard]] inline std::uint16_t read_u16(const std::uint8_t* bytes) {
  return static_cast<std::uint16_t>(bytes[0] | (bytes[1] << 8));
}

[[nodiscard]] inline std::int16_t read_i16(const std::uint8_t* bytes) {
  return static_cast<std::int16_t>(read_u16(bytes));
}

}  // namespace tarsil::detail::wire
