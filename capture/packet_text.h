#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "capture/bus_frame.h"
#include "capture/cmp_message.h"

/// Plain text of what is on the wire, for a developer. No operational path writes it.

/// Takes one text at a time. The dumps below go to the sink that was set last; at first that is
/// standard error. Not for use from several threads at once.
using PacketTextSink = std::function<void(const std::string&)>;
void setPacketTextSink(PacketTextSink sink);

/// Each byte as two hexadecimal digits and a blank, and then, as a text of its own, a line feed.
void dumpBytes(const std::uint8_t* bytes, std::size_t count);
void dumpHeader(const CmpHeader& header);
void dumpCmStatus(const CmStatus& status);
void dumpBusStatus(const BusStatus& status);
void dumpTime(const DeviceTime& time);
void dumpSeconds(double seconds);

/// "0x", the identifier in hexadecimal, "(ext)" for an extended one, ": " and the data bytes.
std::string canFrameToText(const CanFrame& frame);
/// The identifier in decimal, ": " and the data bytes.
std::string linFrameToText(const LinFrame& frame);
