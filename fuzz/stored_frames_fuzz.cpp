#include <cstdint>
#include <string>

#include "fuzz/memory_file.h"
#include "fuzz/require.h"
#include "station/errors.h"
#include "station/offline/direct_capture.h"
#include "station/offline/fitted_clocks.h"
#include "station/offline/found_modules.h"
#include "station/offline/pass_through_clock.h"
#include "station/offline/stored_frames.h"

// A file of stored frames, .pcap or .pcapng, on its way through `convert`, with a module of each
// type beside those that are found in it, by either kind of clocks. At the end each message is in
// one count.

namespace {

using namespace station;

void addModules(DirectCapture& capture, const std::vector<Module>& modules) {
    for (const Module& module : modules) {
        try {
            capture.addModule(module);
        } catch (const UserError&) {  // another one has its CM ID
        }
    }
}

void requireAccount(const Summary& summary) {
    for (const ChannelSummary& channel : summary.channels) {
        const ChannelStatistics& counts = *channel.counts;
        require(counts.queued ==
                    counts.delivered + counts.beforeStart + counts.afterEnd + counts.getLost(),
                "the counts of the capture don't add up");
        require(counts.delivered == channel.frames, "a message that was delivered isn't there");
    }
}

template <class Clocks>
void convert(const std::string& path) {
    std::vector<Module> modules = findModules(path);
    modules.resize(std::min<std::size_t>(modules.size(), 8));
    StoredFrames frames(path);
    RecordingQueue recordings(std::make_shared<RecordingSet>());
    const std::int64_t start = frames.getFirstTime() - 2'000'000'000;
    Clocks clocks(frames, start);
    DirectCapture capture(frames, frames, clocks, start, {}, recordings);
    addModules(capture, modules);
    addModules(capture, {parseModule("CAN combo:1"), parseModule("LIN combo:2"),
                         parseModule("NeoviFire3:7")});
    capture.run(frames, [] { return true; });
    capture.describeClocks();
    const Summary summary = capture.summarize();
    requireAccount(summary);
    toJson(summary);
    toTable(summary);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const MemoryFile file(data, size);
    try {
        convert<PassThroughClocks>(file.path());
        convert<FittedClocks>(file.path());
    } catch (const station::UserError&) {  // no frames in it
    }
    return 0;
}
