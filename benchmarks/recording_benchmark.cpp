// recording-benchmark FOLDER: how fast each format is written, from memory into the folder, beside
// a plain write of the same bytes. Both wait for the disk at their ends. Measured in turn in
// several rounds; the best counts, as what else runs on the machine can only make one slower.

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <vector>

#include "benchmarks/timing.h"
#include "host/bus_record.h"
#include "station/recording/recording.h"

namespace {

using namespace station;

constexpr int rounds = 5;
constexpr std::uint64_t messages = 1'000'000;
constexpr std::size_t channels = 8;
constexpr std::int64_t step = 250;  // nanoseconds between two of them: four million a second

[[noreturn]] void fail(const std::string& what) {
    fmt::print(stderr, "recording-benchmark: {}\n", what);
    std::exit(1);
}

void record(const std::string& path, Best& aMessage) {
    StopWatch watch;
    const auto recording = openRecording(path, true);
    for (std::size_t i = 0; i < channels; ++i) {
        recording->addChannel({fmt::format("Front 0x{}0", i + 1), BusType::Can});
    }
    CanFrame frame;
    frame.length = 8;
    for (std::uint64_t i = 0; i < messages; ++i) {
        frame.id = static_cast<std::uint32_t>(i & 0x7FFU);
        frame.data[0] = static_cast<std::uint8_t>(i);
        frame.data[1] = static_cast<std::uint8_t>(i >> 8U);
        frame.data[7] = static_cast<std::uint8_t>(i * 37U);
        recording->write(i % channels,
                         1'700'000'000'000'000'000 + static_cast<std::int64_t>(i) * step, &frame,
                         sizeof frame);
    }
    if (!recording->close() || recording->getRecordsWritten() != messages) {
        fail(fmt::format("{} is incomplete: {}", path, recording->getErrorText()));
    }
    aMessage.add(watch.lap(), messages);
}

void writePlainly(const std::string& path, std::span<const char> bytes, Best& aMessage) {
    constexpr std::size_t piece = 64 * 1024;  // as the recordings
    StopWatch watch;
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    bool isGood = file >= 0;
    for (std::size_t at = 0; isGood && at < bytes.size(); at += piece) {
        const auto next = bytes.subspan(at, std::min(piece, bytes.size() - at));
        isGood = ::write(file, next.data(), next.size()) == static_cast<ssize_t>(next.size());
    }
    if (!isGood || ::fsync(file) != 0 || ::close(file) != 0) {
        fail("can't write " + path);
    }
    aMessage.add(watch.lap(), messages);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fail("give a folder");
    }
    fmt::print("{} messages of 8 bytes on {} channels:\n", messages, channels);
    for (const RecordingFormat& format : getRecordingFormats()) {
        const std::string path = fmt::format("{}/recording{}", argv[1], format.ending);
        const std::string other = path + ".plain";
        Best recorded;
        Best plain;
        std::vector<char> bytes;
        for (int round = 0; round < rounds; ++round) {
            record(path, recorded);
            std::ifstream in(path, std::ios::binary);
            bytes.assign(std::istreambuf_iterator<char>(in), {});
            writePlainly(other, bytes, plain);
            ::unlink(path.c_str());
            ::unlink(other.c_str());
        }
        fmt::print(
            "  {:<8} {:6.2f} million a second, {:5.1f} bytes each; plain write {:8.2f}, "
            "{:5.2f} times as fast\n",
            format.ending, 1e-6 / recorded.get(), static_cast<double>(bytes.size()) / messages,
            1e-6 / plain.get(), recorded.get() / plain.get());
    }
    return 0;
}
