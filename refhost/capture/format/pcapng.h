// The parts of the pcapng file format that captures use: block types, option codes and sizes, in bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fenlux::capture::pcapng {

// Every block has a type, its total length, a body padded to a multiple of four bytes, and the total length again.
inline constexpr std::uint32_t kSectionHeader = 0x0A0D0D0A;  // reads the same in both byte orders
inline constexpr std::uint32_t kInterfaceDescription = 1;
inline constexpr std::uint32_t kInterfaceStatistics = 5;
inline constexpr std::uint32_t kEnhancedPacket = 6;

inline constexpr std::size_t kBlockHeaderSize = 8;
inline constexpr std::size_t kBlockTrailerSize = 4;
inline constexpr std::size_t kMinBlockSize = kBlockHeaderSize + kBlockTrailerSize;
// Larger blocks count as damaged: the port's messages are smaller than 200,000 bytes.
inline constexpr std::size_t kMaxBlockSize = std::size_t{16} << 20;

// Section header: byte order, versions, length of the section.
inline constexpr std::uint32_t kByteOrderMagic = 0x1A2B3C4D;
inline constexpr std::uint16_t kMajorVersion = 1;
inline constexpr std::uint16_t kMinorVersion = 0;
inline constexpr std::size_t kSectionFixedSize = 16;

// Interface description: link type, reserved, largest captured length.
inline constexpr std::size_t kInterfaceFixedSize = 8;
inline constexpr std::uint16_t kLinkTypeUser0 = 147;
inline constexpr std::uint8_t kNanoseconds = 9;              // if_tsresol: 10^-9 s
inline constexpr std::uint8_t kDefaultResolution = 6;        // if there is no if_tsresol: 10^-6 s
inline constexpr std::uint8_t kPowerOfTwoResolution = 0x80;  // in if_tsresol: the other bits are an exponent of 2

// Enhanced packet: interface, time in two halves, captured and original length, then the packet.
inline constexpr std::size_t kPacketFixedSize = 20;

// Interface statistics: interface, time in two halves.
inline constexpr std::size_t kStatisticsFixedSize = 12;

// Options: code, length, value padded to a multiple of four bytes.
inline constexpr std::size_t kOptionHeaderSize = 4;
inline constexpr std::uint16_t kEndOfOptions = 0;
inline constexpr std::uint16_t kComment = 1;
inline constexpr std::uint16_t kSectionApplication = 4;
inline constexpr std::uint16_t kInterfaceName = 2;
inline constexpr std::uint16_t kInterfaceResolution = 9;
inline constexpr std::uint16_t kInterfaceOffset = 14;
inline constexpr std::uint16_t kPacketFlags = 2;
inline constexpr std::uint16_t kPacketDropCount = 4;
inline constexpr std::uint16_t kStatisticsReceived = 4;
inline constexpr std::uint16_t kStatisticsDropped = 5;

inline constexpr std::uint32_t kDirectionMask = 3;  // in the packet flags: 0 unknown, 1 inbound, 2 outbound

constexpr std::size_t Padded(std::size_t size) { return (size + 3) & ~std::size_t{3}; }

}  // namespace fenlux::capture::pcapng
