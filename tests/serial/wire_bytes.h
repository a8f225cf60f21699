// Bytes as a glove puts them on the wire, put together by hand. Every field that means nothing to a host is
// filled with 0xEE, so that a host that looks at it is found out.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tarsil::test {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::uint8_t kIgnored = 0xEE;

using JointValues = std::array<int, 4>;
using InertialValues = std::array<int, 6>;
using PadValues = std::array<int, 6>;

inline Bytes join(const std::vector<Bytes>& parts) {
  Bytes whole;
  for (const Bytes& part : parts) whole.insert(whole.end(), part.begin(), part.end());
  return whole;
}

inline void put_u16(Bytes& out, int value) {
  out.push_back(static_cast<std::uint8_t>(value & 0xFF));
  out.push_back(static_cast<std::uint8_t>((value >> 8) & 0xFF));
}

inline Bytes block_header(std::uint8_t kind, int segment, std::size_t samples) {
  Bytes block{kind, static_cast<std::uint8_t>((segment << 4) | 0x0E), static_cast<std::uint8_t>(samples)};
  block.resize(13, kIgnored);
  return block;
}

inline Bytes joint_block(int segment, const std::vector<JointValues>& samples, std::uint8_t status_lo = 0x0F,
                         std::uint8_t status_hi = 0x00) {
  Bytes block = block_header(0x10, segment, samples.size());
  for (const JointValues& sample : samples) {
    for (const int value : sample) put_u16(block, value);
  }
  return join({block, {status_lo, kIgnored, kIgnored, status_hi, kIgnored, kIgnored}});
}

inline Bytes inertial_block(int segment, const std::vector<InertialValues>& samples) {
  Bytes block = block_header(0x20, segment, samples.size());
  for (const InertialValues& sample : samples) {
    for (const int value : sample) put_u16(block, value);
  }
  block.resize(block.size() + 6, kIgnored);
  return block;
}

/// A pressure block always holds one set of six values, whatever its sample count says.
inline Bytes pressure_block(int segment, const PadValues& pads, std::uint8_t samples = 1) {
  Bytes block = block_header(0x30, segment, samples);
  for (const int value : pads) put_u16(block, value);
  block.resize(block.size() + 6, kIgnored);
  return block;
}

inline Bytes payload(int count, const std::vector<Bytes>& blocks) {
  return join({{static_cast<std::uint8_t>(count)}, join(blocks)});
}

inline Bytes payload(const std::vector<Bytes>& blocks) {
  return payload(static_cast<int>(blocks.size()), blocks);
}

/// Side code 0 is the right hand, type 1 is sensor data.
inline Bytes packet(int counter, const Bytes& content, std::uint8_t side_code = 0, std::uint8_t type = 1) {
  Bytes header{0x01, 0x02, side_code, type, kIgnored};
  put_u16(header, counter);
  put_u16(header, static_cast<int>(content.size()));
  return join({header, content});
}

/// A packet with one joint block for the thumb, all of whose joints are at `value` hundredths of a degree.
inline Bytes joint_packet(int counter, int value = 0, std::uint8_t side_code = 0) {
  return packet(counter, payload({joint_block(0, {{value, value, value, value}})}), side_code);
}

/// An identity frame whose check byte is right.
inline Bytes identity_frame(const std::string& serial, std::uint8_t major = 1, std::uint8_t minor = 4) {
  Bytes frame{0xC1, 0x40, 0x52, 0x53};
  frame.resize(12, kIgnored);
  frame.push_back(static_cast<std::uint8_t>(serial.size()));
  frame.insert(frame.end(), serial.begin(), serial.end());
  frame.push_back(major);
  frame.push_back(minor);
  unsigned check = 0;
  for (const std::uint8_t byte : frame) check ^= byte;
  frame.push_back(static_cast<std::uint8_t>(check));
  return frame;
}

}  // namespace tarsil::test
