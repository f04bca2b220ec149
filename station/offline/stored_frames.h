#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "capture/capture_port.h"
#include "core/performance_counter.h"
#include "station/offline/frame_file.h"

namespace station {

/// Of a file's time, what is read in one pass: as long as a host's period.
inline constexpr std::int64_t stretchNanoseconds = 20'000'000;

/// The frames of a .pcap or .pcapng file, as the one interface of a capture port, with a
/// performance counter that shows the time of the frame read last: the capture core runs on a file
/// as it runs live, and as fast as it can.
///
/// The reads time out now and then, after a stretch of the file's time or of its length, so that a
/// pass ends and what was read can be moved on. Used on one thread.
class StoredFrames final : public CapturePort, public PerformanceCounter {
  public:
    /// Throws UserError (unreadable) if this is no file of Ethernet frames.
    explicit StoredFrames(const std::string& filePath);

    bool isAtEnd() const { return atEnd; }
    /// Why reading ended before the file did; empty if it didn't.
    const std::string& getErrorText() const { return file.getErrorText(); }
    /// What is missing because frames of capture modules were stored in part; empty if none was.
    std::string getCutText() const;
    /// Nanoseconds since 1970 of the first frame; 0 without one.
    std::int64_t getFirstTime() const { return firstTime; }
    /// How much of the file was read, 0.0 to 1.0.
    double getProgress() const { return file.getProgress(); }

    std::uint64_t getCount() const override { return static_cast<std::uint64_t>(time); }
    std::uint64_t getFrequency() const override { return 1000000000; }
    std::int64_t getRealNanoseconds() const override { return time; }

    std::int32_t findAllDevices(std::vector<CaptureInterface>& devices,
                                std::string& error) override;
    std::unique_ptr<CaptureHandle> openLive(const std::string& name, std::int32_t snapLength,
                                            bool promiscuous, std::int32_t timeoutMs,
                                            std::string& error) override;
    std::int32_t lookupNet(const std::string& name, std::uint32_t& net, std::uint32_t& mask,
                           std::string& error) override;

    /// The counter goes on without a frame, from the latest moment that it has shown.
    void passTime(std::int64_t nanoseconds) { time = latestTime += nanoseconds; }
    /// Reads the next frame as a `CaptureHandle` does.
    std::int32_t next(CapturedFrame& frame);

  private:
    bool fetch();

    const std::string path;
    FrameFile file;
    std::int64_t firstTime = 0;
    std::int64_t time = 0;
    std::int64_t latestTime = 0;
    bool atEnd = false;
    std::uint64_t cutFrames = 0;

    FrameFile::Frame ahead;  ///< read ahead, unless `atEnd`
    bool isAhead = false;

    // The stretch that a pass may read.
    bool stretchOpen = false;
    std::int64_t stretchEnd = 0;
    std::uint32_t stretchBytes = 0;
};

}  // namespace station
