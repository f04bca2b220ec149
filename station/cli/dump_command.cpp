#include <fmt/format.h>
#include <net/if.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include "capture/bus_frame.h"
#include "capture/frame_decoder.h"
#include "capture/live_handle.h"
#include "capture/packet_text.h"
#include "station/cli/commands.h"
#include "station/offline/stored_frames.h"
#include "station/permission.h"
#include "station/terminal_text.h"

namespace station {
namespace {

constexpr const char* dumpAbout =
    "Prints every message of a file, or of one network interface, as text.";

constexpr const char* dumpExamples = R"(
Examples:
  cmp-station dump stored.pcap --count 10
  cmp-station dump --interface eth1)";

constexpr double mostMessages = 1e15;

struct DumpOptions {
    std::string file;
    std::string interface;
    std::uint64_t count = std::numeric_limits<std::uint64_t>::max();
};

void dumpCmStatusPayload(const CmpHeader& header, const std::uint8_t* payload) {
    CmStatus status;
    if (header.isAsam) {
        status.cmId = header.cmId;
        if (decodeAsamCmStatus(payload, header.dataLength, status) == DecodeResult::ok) {
            dumpCmStatus(status);
            printResult(fmt::format("Serial text: {}\n", printable(status.serialText)));
        }
    } else if (decodeCmStatus(header, payload, status) == DecodeResult::ok) {
        dumpCmStatus(status);
    }
}

void dumpBusStatusPayload(const CmpHeader& header, const std::uint8_t* payload) {
    std::int32_t offset = 0;
    BusStatus status;
    while (decodeBusStatus(header, payload, &offset, status) == DecodeResult::ok) {
        dumpBusStatus(status);
    }
}

template <class Frame>
void printFrame(const std::uint8_t* payload, std::uint32_t length,
                std::string (*toText)(const Frame&)) {
    if (holdsFrame<Frame>(payload, length)) {
        Frame frame;
        decodeFrame(payload, frame);
        printResult(toText(frame) + '\n');
    }
}

void dumpDataPayload(const CmpHeader& header, const std::uint8_t* payload) {
    constexpr std::uint16_t linDataType = 4;
    dumpBytes(payload, header.dataLength);
    std::uint32_t length = header.dataLength;
    RebuiltPayload rebuilt;
    if (header.isAsam) {
        rebuildAsamData(header, payload, length, rebuilt);
        payload = rebuilt.bytes;
        length = rebuilt.length;
    }
    if (!header.isAsam && header.dataType == linDataType) {
        printFrame<LinFrame>(payload, length, linFrameToText);
    } else {
        printFrame<CanFrame>(payload, length, canFrameToText);
    }
}

void dumpMessage(const CmpHeader& header, const std::uint8_t* payload) {
    dumpHeader(header);
    dumpTime(splitTimestamp(header.timestamp));
    switch (header.messageType) {
        case MessageType::cmStatus:
            dumpCmStatusPayload(header, payload);
            break;
        case MessageType::busStatus:
            dumpBusStatusPayload(header, payload);
            break;
        case MessageType::data:
            dumpDataPayload(header, payload);
            break;
        default:
            dumpBytes(payload, header.dataLength);
            break;
    }
    printResult("\n");
}

/// Dumps the messages of one frame, `left` at most, and counts them off.
void dumpFrame(const CapturedFrame& frame, std::uint64_t& left) {
    CmpHeader header;
    const std::uint8_t* payload = nullptr;
    std::int32_t offset = 0;
    while (left > 0 && parseFrame(frame.data, static_cast<std::int32_t>(frame.length), &offset,
                                  header, payload) == DecodeResult::ok) {
        dumpMessage(header, payload);
        --left;
    }
}

ExitCode dumpFile(const DumpOptions& options, StopSignal& stop) {
    StoredFrames frames(options.file);
    CapturedFrame frame;
    std::uint64_t left = options.count;
    while (left > 0 && !frames.isAtEnd() && !stop.isRequested()) {
        if (frames.next(frame) == CaptureHandle::gotFrame) {
            dumpFrame(frame, left);
        }
    }
    const std::string cut = frames.getCutText();
    if (!cut.empty()) {
        printMessage(cut);
    }
    if (!frames.getErrorText().empty()) {
        throw UserError(ExitCode::Unreadable, frames.getErrorText());
    }
    return cut.empty() ? ExitCode::Good : ExitCode::Failed;
}

/// Ends when the interface goes away: one that is made again under its name is another one.
ExitCode dumpInterface(const DumpOptions& options, StopSignal& stop) {
    constexpr std::int32_t snapLength = 65536;
    constexpr std::int32_t readTimeoutMs = 100;
    checkCapturePermission();
    if (::if_nametoindex(options.interface.c_str()) == 0) {  // libpcap has names of its own
        throw UserError(
            ExitCode::Failed,
            fmt::format("there is no interface \"{}\"; \"ip link\" lists the interfaces",
                        options.interface));
    }
    std::string error;
    const auto handle = LiveHandle::open({options.interface, snapLength, true}, readTimeoutMs,
                                         std::make_shared<OpenLinks>(), error);
    if (!handle) {
        throw UserError(ExitCode::Failed, error + "; \"ip link\" lists the interfaces");
    }
    handle->enterWaits();
    const std::atomic<bool>& isGone = handle->getLink()->isEnded;
    CapturedFrame frame;
    std::uint64_t left = options.count;
    while (left > 0 && !isGone && !stop.isRequested()) {
        if (handle->next(frame) == CaptureHandle::gotFrame) {
            dumpFrame(frame, left);
        }
    }
    const std::uint64_t dropped = handle->getCounts().dropped;
    if (dropped != 0) {
        printMessage(fmt::format(
            "{} Ethernet frames were lost before they could be read: the output or the machine was "
            "too slow",
            dropped));
    }
    if (isGone) {
        printMessage("interface " + options.interface + " went away");
    }
    return dropped != 0 || isGone ? ExitCode::Failed : ExitCode::Good;
}

}  // namespace

void addDumpCommand(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<DumpOptions>();
    CLI::App* const command = app.add_subcommand("dump", dumpAbout);
    command->footer(dumpExamples);
    auto* const source = command->add_option_group("source");
    source->add_option("FILE", options->file, "Stored frames, .pcap or .pcapng");
    source->add_option("--interface", options->interface, "Capture on this interface")
        ->type_name("IF")
        ->check(mayCarryEthernet());
    source->require_option(1);
    command->add_option("--count", options->count, "End after N messages")
        ->type_name("N")
        ->check(within(1.0, mostMessages));
    onChosen(*command, chosen, [options](StopSignal& stop) {
        setPacketTextSink(printResult);
        return options->file.empty() ? dumpInterface(*options, stop) : dumpFile(*options, stop);
    });
}

}  // namespace station
