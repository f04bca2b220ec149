#include "capture/packet_text.h"

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <sstream>

namespace {

PacketTextSink& sink() {
    static PacketTextSink current = [](const std::string& text) { std::cerr << text; };
    return current;
}

/// A stream in the classic locale: no digits are grouped, whatever the machine's settings.
class TextStream : public std::ostringstream {
  public:
    TextStream() { imbue(std::locale::classic()); }

    template <class Number>
    void line(const char* label, Number value) {
        *this << label << +value << '\n';
    }
    void send() const { sink()(str()); }
};

void writeHex(std::ostream& stream, const std::uint8_t* bytes, std::size_t count) {
    stream << std::hex << std::uppercase << std::setfill('0');
    for (std::size_t i = 0; i < count; ++i) {
        stream << std::setw(2) << +bytes[i] << ' ';
    }
}

}  // namespace

void setPacketTextSink(PacketTextSink newSink) {
    sink() = std::move(newSink);
}

void dumpBytes(const std::uint8_t* bytes, std::size_t count) {
    TextStream stream;
    writeHex(stream, bytes, count);
    stream.send();
    sink()("\n");
}

void dumpHeader(const CmpHeader& header) {
    TextStream stream;
    stream << "HEADER\n";
    stream.line("CM ID:        ", header.cmId);
    stream.line("Counter:      ", header.counter);
    stream.line("Data type:    ", header.dataType);
    stream.line("Data length:  ", header.dataLength);
    stream.line("Message type: ", header.messageType);
    stream.line("Version:      ", header.version);
    stream.line("Chn. ID:      ", header.channelId);
    stream.send();
}

void dumpCmStatus(const CmStatus& status) {
    TextStream stream;
    stream << "CM_STATUS\n";
    stream.line("CM ID:   ", status.cmId);
    stream.line("CM Type: ", status.cmType);
    stream.line("CM Ver:  ", status.cmVersion);
    stream.line("SN:      ", status.serialNumber);
    stream.send();
}

void dumpBusStatus(const BusStatus& status) {
    TextStream stream;
    stream << "BUS_STATUS\n";
    stream.line("Chn. ID:  ", status.interfaceId);
    stream.line("CM ID:    ", status.cmId);
    stream.line("CM Type:  ", status.cmType);
    stream.line("CM Ver:   ", status.cmVersion);
    stream.line("Error#:   ", status.errorCount);
    stream.line("Message#: ", status.messageCount);
    stream.line("SN:       ", status.serialNumber);
    stream.send();
}

void dumpTime(const DeviceTime& time) {
    TextStream stream;
    stream << "Time: " << time.seconds << '.' << std::setw(9) << time.nanoseconds << '\n';
    stream.send();
}

void dumpSeconds(double seconds) {
    TextStream stream;
    stream << "Time: " << seconds << '\n';
    stream.send();
}

std::string canFrameToText(const CanFrame& frame) {
    TextStream stream;
    stream << "0x" << std::hex << std::uppercase << frame.id << (frame.extended != 0 ? "(ext)" : "")
           << ": ";
    writeHex(stream, frame.data, std::min<std::size_t>(frame.length, CanFrame::mostData));
    return stream.str();
}

std::string linFrameToText(const LinFrame& frame) {
    TextStream stream;
    stream << +frame.id << ": ";
    writeHex(stream, frame.data, std::min<std::size_t>(frame.length, LinFrame::mostData));
    return stream.str();
}
