#include "station/offline/stored_frames.h"

#include <zstd.h>

#include "tests/support/temporary_folder.h"

namespace station {
namespace {

using testing::ElementsAre;

constexpr std::uint32_t ethernet = 1;

/// Of a frame: seconds, nanoseconds, captured and whole length.
using Stored = std::array<std::uint32_t, 4>;

/// A .pcap file with nanosecond times.
class StoredFrameFiles : public testing::Test {
  protected:
    void write(const std::vector<Stored>& frames) {
        std::ofstream out(path, std::ios::binary);
        const std::uint32_t header[] = {0xA1B23C4D, 0x00040002, 0, 0, 65535, ethernet};
        out.write(reinterpret_cast<const char*>(header), sizeof header);
        for (std::size_t i = 0; i < frames.size(); ++i) {
            out.write(reinterpret_cast<const char*>(frames[i].data()), sizeof frames[i]);
            out << std::string(frames[i][2], static_cast<char>('A' + i));
        }
    }

    /// All frames, and no more reads than a file with this many could need.
    void readAll(StoredFrames& frames) {
        constexpr std::size_t mostReads = 1000;
        letters.clear();
        CapturedFrame frame;
        while (!frames.isAtEnd() && letters.size() < mostReads) {
            if (frames.next(frame) == CaptureHandle::timeout) {
                letters += ' ';
                continue;
            }
            letters += frame.length > 0 ? static_cast<char>(*frame.data) : '-';
            times.push_back(frame.receivedAt);
            lengths.push_back(frame.length);
        }
    }

    const TemporaryFolder folder;
    const std::string path = folder.path() / "a.pcap";
    std::string letters;  ///< the first byte of each frame; a blank for each timeout
    std::vector<std::int64_t> times;
    std::vector<std::uint32_t> lengths;
};

TEST_F(StoredFrameFiles, PassesEndNowAndThenAndEveryFrameIsReadOnceAtItsTime) {
    write({{7, 0, 60, 60}, {7, 19'999'999, 60, 60}, {7, 20'000'000, 60, 60}, {9, 1, 60, 60}});
    StoredFrames frames(path);
    EXPECT_EQ(frames.getFirstTime(), 7'000'000'000);
    readAll(frames);
    EXPECT_EQ(letters, "AB C D ");
    EXPECT_THAT(times, ElementsAre(7'000'000'000, 7'019'999'999, 7'020'000'000, 9'000'000'001));
    EXPECT_EQ(frames.getErrorText(), "");
    EXPECT_EQ(frames.getProgress(), 1.0);

    write(std::vector<Stored>(20, {7, 0, 60'000, 60'000}));  // much at one moment
    StoredFrames many(path);
    readAll(many);
    EXPECT_GT(std::erase(letters, ' '), 2U);
    EXPECT_EQ(letters, "ABCDEFGHIJKLMNOPQRST");
}

TEST_F(StoredFrameFiles, CompressedOnesAreReadAsOthersUpToWhereTheyAreTorn) {
    write(std::vector<Stored>(20, {7, 0, 60, 60}));
    const std::string plain = contentOf(path);
    std::string packed(ZSTD_compressBound(plain.size()), '\0');
    packed.resize(ZSTD_compress(packed.data(), packed.size(), plain.data(), plain.size(), 3));
    for (const bool isTorn : {false, true}) {  // within a second frame, which has no whole block
        std::ofstream(path) << packed << (isTorn ? packed.substr(0, packed.size() - 9) : "");
        StoredFrames frames(path);
        readAll(frames);
        std::erase(letters, ' ');
        EXPECT_EQ(letters, "ABCDEFGHIJKLMNOPQRST");
        EXPECT_EQ(frames.getErrorText(), isTorn
                                             ? path +
                                                   " can't be read to its end: what is compressed "
                                                   "in it is torn or damaged"
                                             : "");
    }
}

TEST_F(StoredFrameFiles, HostileTimesAndLengthsLoseNoFrame) {
    constexpr std::uint32_t most = 0xFFFFFFFF;
    write({{most, most, 60, 60},
           {0, 0, 60, 60},
           {5, 0, 60, 20},
           {4, 0, 10, most},
           {6, 0, 0, 0},
           {6, 0, 14, 60},
           {most, 0, 60, 60}});
    StoredFrames frames(path);
    readAll(frames);
    std::erase(letters, ' ');
    EXPECT_EQ(letters, "ABCD-FG");
    EXPECT_THAT(lengths, ElementsAre(60, 60, 20, 10, 0, 14, 60));
    EXPECT_THAT(frames.getCutText(), testing::StartsWith("1 ")) << "that of another protocol isn't";
}

}  // namespace
}  // namespace station
