// Encodes the blocks of a capture file. Integers are little-endian, whatever the machine's byte order.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "refhost/capture/format/packet.h"

namespace fenlux::capture {

using Bytes = std::vector<std::uint8_t>;

// Appends the blocks that begin every file: a section header, and the description of the one interface.
void AppendFileHeader(Bytes& out);

// Removes the zeros at the end of the message. Requests and their replies have a fixed size that most hardly fill.
void CutZeros(Packet& packet);

// The size of the packet's block.
std::size_t PacketBlockSize(const Packet& packet);
// Appends the packet. Takes the direction from the kind and ignores `direction` and `offset`. Allocates only to enlarge
// `out`.
void AppendPacket(Bytes& out, const Packet& packet);

// Appends the number of messages received from the port and how many of them were lost.
void AppendStatistics(Bytes& out, std::uint64_t time, std::uint64_t received, std::uint64_t dropped);

// Fields that can be read and changed in place in a block that AppendPacket made.
PacketHeader HeaderOfBlock(std::span<const std::uint8_t> block);
std::uint64_t BlockTime(std::span<const std::uint8_t> block);
void SetBlockTime(std::span<std::uint8_t> block, std::uint64_t time);
std::uint64_t BlockDropCount(std::span<const std::uint8_t> block);
void SetBlockDropCount(std::span<std::uint8_t> block, std::uint64_t dropped);

// The first block of `blocks`, which must begin with a complete one.
std::span<std::uint8_t> FirstBlock(std::span<std::uint8_t> blocks);

}  // namespace fenlux::capture
