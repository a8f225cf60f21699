// The glove's side of the wire: identity frames and data packets as bytes. Pure functions with constants of
// their own; nothing here is shared with the host's decoder, so that a mistake on one side cannot hide behind
// the same mistake on the other.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/virtual_glove/motion.h"

namespace tarsil::virtual_glove {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

/// Host command: stop streaming and announce yourself.
constexpr std::uint8_t kResetCommand = 0xFF;
/// Host command: begin to stream.
constexpr std::uint8_t kStartCommand = 0xA5;

constexpr std::uint8_t kRightSideCode = 0;
constexpr std::uint8_t kLeftSideCode = 1;

constexpr std::uint8_t kSensorPacketType = 1;

constexpr std::uint8_t kJointBlockKind = 0x10;
constexpr std::uint8_t kInertialBlockKind = 0x20;
constexpr std::uint8_t kPressureBlockKind = 0x30;

/// Bytes of a data packet before its payload, and the first two of them.
constexpr std::size_t kPacketHeaderSize = 9;
constexpr std::uint8_t kPacketMagic0 = 0x01;
constexpr std::uint8_t kPacketMagic1 = 0x02;

/// The most payload a host accepts; a longer one is refused by the encoder.
constexpr std::size_t kLargestPayload = 4096;

/// Bytes of a data packet that carries one whole HandSample.
constexpr std::size_t kHandPacketSize = 455;

/// The most bytes that a serial text can have.
constexpr std::size_t kLongestSerial = 255;

struct Identity {
  std::string serial;  ///< at most kLongestSerial bytes
  std::uint8_t firmware_major = 0;
  std::uint8_t firmware_minor = 0;
  std::array<std::uint8_t, 8> device{};  ///< for the maker; hosts do not look at it
};

/// The frame by which the glove announces itself. Throws std::length_error for a serial of more than 255
/// bytes.
Bytes encode_identity(const Identity& identity);

/// One sample of a joint block: four angles in hundredths of a degree.
using JointReading = std::array<std::int16_t, kJointsPerFinger>;
/// One sample of an inertial block: accelerometer x, y, z, gyroscope x, y, z in hundredths.
using InertialReading = std::array<std::int16_t, kAxesPerUnit>;
/// The content of a pressure block: six pads in hundredths.
using PressureReading = std::array<std::int16_t, kPadsPerFinger>;

/// Blocks for one finger segment (0 to 15, the gloves use 0 to 4), each with at most 255 samples.
Bytes joint_block(unsigned segment, std::span<const JointReading> samples, std::uint16_t status);
Bytes inertial_block(unsigned segment, std::span<const InertialReading> samples);
Bytes pressure_block(unsigned segment, const PressureReading& pads);

/// A block of any kind whose content is `content`, between an ordinary header and trailer.
Bytes other_block(std::uint8_t kind, unsigned segment, ByteView content);

/// The blocks of one cycle: five joint blocks, five inertial ones, five pressure ones, one sample each.
std::vector<Bytes> hand_blocks(const HandSample& sample);

/// The payload of a sensor packet: the number of blocks (at most 255), then the blocks.
Bytes encode_payload(std::span<const Bytes> blocks);

/// A packet of any type around a payload. Throws std::length_error for a payload of more than 4096 bytes.
Bytes encode_packet(std::uint8_t side_code, std::uint8_t type, std::uint16_t counter, ByteView payload);

}  // namespace tarsil::virtual_glove
