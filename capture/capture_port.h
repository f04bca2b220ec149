#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// A network interface as the port lists it.
struct CaptureInterface {
    std::string name;
    std::string description;
    /// The names of the interfaces whose frames it only shows once more, as a bridge does with its
    /// ports'; none for one that has frames of its own.
    std::vector<std::string> repeated{};
};

/// A frame as it was read.
struct CapturedFrame {
    static constexpr std::int64_t notStamped = 0;

    const std::uint8_t* data = nullptr;  ///< from the Ethernet header on, valid until the next read
    std::uint32_t length = 0;            ///< bytes captured
    /// When the system received it: nanoseconds since 1970 on the real clock, or `notStamped`.
    std::int64_t receivedAt = notStamped;

    /// Only untagged frames of EtherType 0x99FE count, though the decoder knows more.
    bool isCaptureFrame() const {
        constexpr std::uint32_t ethernetHeaderSize = 14;
        return length >= ethernetHeaderSize && data[12] == 0x99 && data[13] == 0xFE;
    }
};

/// What the system counted of an interface since it was opened.
struct SystemCounts {
    /// All frames that came in, those included that were dropped or weren't read yet; empty where
    /// the system doesn't say.
    std::optional<std::uint64_t> received;
    std::uint64_t waiting = 0;  ///< of those received, the ones that weren't read yet
    std::uint64_t dropped = 0;  ///< thrown away, as they weren't read in time

    SystemCounts& operator+=(const SystemCounts& other) {
        received =
            received && other.received ? std::optional(*received + *other.received) : std::nullopt;
        waiting += other.waiting;
        dropped += other.dropped;
        return *this;
    }
};

/// An open interface. Read by the capture thread; closed by its destruction, on any thread.
class CaptureHandle {
  public:
    static constexpr std::int32_t timeout = 0;
    static constexpr std::int32_t gotFrame = 1;

    CaptureHandle() = default;
    CaptureHandle(const CaptureHandle&) = delete;
    CaptureHandle& operator=(const CaptureHandle&) = delete;
    virtual ~CaptureHandle() = default;

    /// Waits for the next frame, for no longer than the read timeout. `gotFrame`: `frame` holds it.
    /// `timeout`: no frame came. Negative: a read error. Only `gotFrame` changes `frame`.
    virtual std::int32_t next(CapturedFrame& frame) = 0;

    /// Called by the capture thread, at least once in 2^32 frames.
    virtual SystemCounts getCounts() { return {}; }
};

/// Closes them at once, each on a thread of its own: the system takes some 20 ms for one.
void closeTogether(std::vector<std::unique_ptr<CaptureHandle>>& handles);

class CaptureMessages;

/// What is to be captured beside the interfaces that were opened at the start.
struct LateCapture {
    std::vector<const CaptureHandle*> opened;  ///< these, by the same port
    std::vector<std::string> selection;        ///< only these, by name; none means all
    std::int32_t snapLength = 0;
    bool promiscuous = false;
    std::int32_t timeoutMs = 0;
    CaptureMessages* messages = nullptr;  ///< gets what the user must know; outlives the handle
};

/// The calls that the reader makes to the capture library, so that it also runs on scripted reads.
/// Where a call fails it puts the library's text into `error`.
class CapturePort {
  public:
    CapturePort() = default;
    CapturePort(const CapturePort&) = delete;
    CapturePort& operator=(const CapturePort&) = delete;
    virtual ~CapturePort() = default;

    /// The network interfaces of the machine. 0, or -1 on failure.
    virtual std::int32_t findAllDevices(std::vector<CaptureInterface>& devices,
                                        std::string& error) = 0;
    /// Whether there is one of that name that isn't listed, as it carries no Ethernet frames.
    virtual bool isOfOtherKind(const std::string&) { return false; }
    /// `timeoutMs` bounds each read. Null on failure.
    virtual std::unique_ptr<CaptureHandle> openLive(const std::string& name,
                                                    std::int32_t snapLength, bool promiscuous,
                                                    std::int32_t timeoutMs, std::string& error) = 0;
    /// A handle for the interfaces that appear, come up or can be opened only after the start: it
    /// opens them as soon as they are there, and its reads give their frames. It leaves out those
    /// that repeat others, unless they are selected, also those in `opened`: an interface that
    /// comes to repeat others reads as quiet from then on. Null where there are no such interfaces.
    virtual std::unique_ptr<CaptureHandle> openLate(const LateCapture&) { return nullptr; }
    /// Network number and mask of an interface, as 32 bits in network order. 0, or -1 on failure.
    virtual std::int32_t lookupNet(const std::string& name, std::uint32_t& net, std::uint32_t& mask,
                                   std::string& error) = 0;
};
