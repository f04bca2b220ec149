#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "capture/cmp_packet_reader.h"
#include "capture/pcap_port.h"
#include "station/offline/direct_output.h"
#include "station/offline/pass_through_clock.h"

namespace {

class NoSink final : public station::SampleSink {
    void onSample(std::uint32_t, const void*, std::size_t, double) override {}
};

auto openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

}  // namespace

/// reader_rounds N: starts and stops capturing on all interfaces N times. Prints a line each: the
/// number of open descriptors before, after the first start, after the last, and at the end; then
/// the interfaces.
int main(int, char** argv) {
    std::cout << openDescriptors() << '\n';
    {
        const SteadyPerformanceCounter counter;
        PcapPort port;
        NoSink sink;
        station::PassThroughClocks clocks(counter, counter.getNanoseconds());
        station::DirectOutputs outputs(sink);
        CmpPacketReader reader(&clocks, &outputs, port, counter);
        reader.openAndStartRead();
        std::cout << openDescriptors() << '\n';
        for (int i = 1; i < std::atoi(argv[1]); ++i) {
            reader.Stop();
            reader.openAndStartRead();
        }
        std::cout << openDescriptors() << '\n';
        reader.Stop();
    }
    std::cout << openDescriptors() << '\n';
    std::vector<CaptureInterface> interfaces;
    std::string error;
    PcapPort().findAllDevices(interfaces, error);
    for (const CaptureInterface& entry : interfaces) {
        std::cout << entry.name << '\n';
    }
    return EXIT_SUCCESS;
}
