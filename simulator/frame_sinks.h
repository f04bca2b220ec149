#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

struct pcap;
struct pcap_dumper;

namespace sim {

enum class FrameKind : std::uint8_t { Data, Status, Malformed };

/// An encoded frame on its way out. The bytes belong to the simulation until `send` returns.
struct OutFrame {
    std::span<const std::uint8_t> bytes;
    FrameKind kind = FrameKind::Data;
    std::size_t module = 0;      ///< whose it is
    std::uint32_t messages = 0;  ///< data messages in it
    std::int64_t due = 0;        ///< when it should leave, ns after the start
};

/// Where frames go.
class FrameSink {
  public:
    virtual ~FrameSink() = default;

    /// The longest frame that it takes, Ethernet header included.
    virtual std::size_t getLongestFrame() const = 0;

    /// Takes frames from the front and returns how many; fewer, or none, when it has no room just
    /// now. Throws `Failure` when no more can go out.
    virtual std::size_t send(std::span<const OutFrame> frames) = 0;

    /// All frames are sent. Throws `Failure` when some of those taken got lost after all.
    virtual void finish() {}
};

/// What decides whether made-up frames may go out on a network interface.
struct InterfaceFacts {
    bool exists = false;
    bool loopback = false;
    bool veth = false;          ///< one end of a virtual pair
    bool ownNamespace = false;  ///< in another network namespace than the machine's first process
    bool up = false;
    std::size_t mtu = 0;
};

/// Asks the kernel; what can't be found out reads as false.
InterfaceFacts inspectInterface(const std::string& name);

/// Why nothing may be sent there, or an empty text. Frames of a simulator on a vehicle's or an
/// office's network would be taken for measurements.
std::string refusalFor(const std::string& name, const InterfaceFacts& facts);

/// Puts frames on a network interface through a raw packet socket, past the queueing discipline:
/// the kernel then says at once whether it took a frame, and nothing waits where it could be
/// dropped unseen.
class PacketSocketSink : public FrameSink {
  public:
    /// Throws `Failure`: not allowed, no such interface, or it is down.
    explicit PacketSocketSink(const std::string& interfaceName);
    ~PacketSocketSink() override;
    PacketSocketSink(const PacketSocketSink&) = delete;
    PacketSocketSink& operator=(const PacketSocketSink&) = delete;

    std::size_t getLongestFrame() const override { return longest; }
    std::size_t send(std::span<const OutFrame> frames) override;

  private:
    const std::string name;
    const int socket;
    std::size_t longest = 0;
};

/// Writes frames into a capture file with nanosecond times, each at the time when it is due.
class PcapFileSink : public FrameSink {
  public:
    /// `path`: "-" is the standard output; a file with content is refused unless `overwrite` is
    /// set. `getStartUtc`: nanoseconds since 1970. Throws `Failure` when the file can't be made.
    PcapFileSink(const std::string& path, std::int64_t startUtc, bool overwrite = false);
    ~PcapFileSink() override;
    PcapFileSink(const PcapFileSink&) = delete;
    PcapFileSink& operator=(const PcapFileSink&) = delete;

    std::size_t getLongestFrame() const override { return 65535; }
    std::size_t send(std::span<const OutFrame> frames) override;
    void finish() override;

  private:
    [[noreturn]] void fail() const;

    const std::string name;
    const std::int64_t start;
    pcap* const format;
    pcap_dumper* file = nullptr;
};

}  // namespace sim
