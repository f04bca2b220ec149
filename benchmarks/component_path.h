#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "benchmarks/pcap_frames.h"
#include "plugin/cmp_plugin_core.h"
#include "station/host/station_host.h"

/// The whole way over one file through the component and the station: from the stored frame over
/// the fitted clocks and the bridge into the station's channel buffers, where nobody reads. Capture
/// and host in turn on one thread, with the file's own time.
class ComponentPath {
  public:
    /// One module of each of these types, with CM IDs from 1 up, all channels used.
    ComponentPath(const std::string& path, const std::vector<std::uint32_t>& moduleTypes);

    bool isAtEnd() const { return frames.isAtEnd(); }
    /// Reads a stretch of the file and moves it on. In the first few passes the clocks learn the
    /// modules' time and everything waits.
    void pass();
    /// One periodic call, as the host makes it 50 times a second.
    void poll();
    /// A little later: what was stamped last is delivered too.
    void finish();
    /// Samples in the host's buffers since the start.
    std::uint64_t count() const { return host->getChannels().getWritten(); }
    /// Messages that were stamped before the measurement, which starts when the first frame comes.
    std::uint64_t countBeforeStart();

  private:
    /// The file's time, which goes on by a nanosecond each time that it is looked at: clocks are
    /// fitted to times that are all different.
    class MovingCounter final : public PerformanceCounter {
      public:
        explicit MovingCounter(const PcapFrames& fileTime) : file(fileTime) {}
        std::uint64_t getCount() const override { return file.getCount() + ++looks; }
        std::uint64_t getFrequency() const override { return file.getFrequency(); }
        std::int64_t getRealNanoseconds() const override { return file.getRealNanoseconds(); }
        void passBy(std::uint64_t nanoseconds) { looks += nanoseconds; }

      private:
        const PcapFrames& file;
        mutable std::uint64_t looks = 0;
    };

    PcapFrames frames;
    MovingCounter counter;
    CountedRef<station::StationHost> host;
    InputManagerImpl inputs;
    OutputFactoryImpl outputs;
    CmpPluginCore core;
    int passes = 0;
};
