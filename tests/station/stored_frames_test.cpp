#include "station/offline/stored_frames.h"

#include <zstd.h>

#include "station/errors.h"
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

/// A .pcapng of either byte order, word by word.
class StoredPcapng : public StoredFrameFiles {
  protected:
    void block(std::uint32_t type, const std::vector<std::uint32_t>& words,
               std::optional<std::uint32_t> lengthAtEnd = {}) {
        const auto size = static_cast<std::uint32_t>(12 + 4 * words.size());
        put(type);
        put(size);
        std::ranges::for_each(words, [this](std::uint32_t word) { put(word); });
        put(lengthAtEnd.value_or(size));
    }
    /// Of two 16-bit numbers.
    std::uint32_t pair(std::uint32_t first, std::uint32_t second) const {
        return isBigEndian ? first << 16U | second : second << 16U | first;
    }
    void section() { block(0x0A0D0D0A, {0x1A2B3C4D, pair(1, 0), ~0U, ~0U}); }
    void interface(std::uint32_t link, std::vector<std::uint32_t> options = {}) {
        options.insert(options.begin(), {pair(link, 0), 0});
        block(1, options);
    }
    void packet(std::uint32_t number, std::uint64_t time, std::uint32_t stored = 4) {
        block(6, {number, static_cast<std::uint32_t>(time >> 32U), static_cast<std::uint32_t>(time),
                  stored, 9, 0x41414141});
    }
    void put(std::uint32_t word) {
        word = isBigEndian ? __builtin_bswap32(word) : word;
        bytes.append(reinterpret_cast<const char*>(&word), sizeof word);
    }
    std::string errorOf() {
        std::ofstream(path, std::ios::binary) << bytes;
        StoredFrames frames(path);
        times.clear();
        readAll(frames);
        std::erase(letters, ' ');
        return frames.getErrorText();
    }

    std::string bytes;
    bool isBigEndian = false;
};

TEST_F(StoredPcapng, OfEitherByteOrderAndAnyResolutionIsReadUpToWhereItMakesNoSense) {
    constexpr std::uint64_t moment = 1'700'000'000'123'456'789;
    for (const bool isBig : {true, false}) {  // sections of both in one file
        isBigEndian = isBig;
        section();
        interface(ethernet, {pair(9, 1), isBig ? 0x09000000U : 9U, 0});
        interface(ethernet);
        interface(ethernet, {pair(14, 8), isBig ? 0U : 3U, isBig ? 3U : 0U, 0});
        block(5, {0, 0, 0});
        packet(0, moment);
        packet(1, moment / 1000);
        packet(2, 1'000'000);
        block(3, {4, 0x41414141});
    }
    const std::string whole = bytes;
    EXPECT_EQ(errorOf(), "");
    EXPECT_EQ(letters, "AAAAAAAA");
    const auto times1 = {moment, moment / 1000 * 1000, std::uint64_t{4'000'000'000}};
    EXPECT_TRUE(std::ranges::equal(times1, std::span(times).first(3)));
    EXPECT_TRUE(std::ranges::equal(times1, std::span(times).subspan(4, 3)));
    const std::pair<std::function<void()>, const char*> faults[] = {
        {[&] { packet(7, 0); }, "an interface that isn't there; 36 bytes"},
        {[&] { packet(0, 0, 5); }, "longer than its block"},
        {[&] {
             block(6, {0, 0});
         },
         "shorter than its head"},
        {[&] { block(6, {0}, 13); }, "another length at its end"},
        {[&] { interface(227); }, "link type 227"},
        {[&] { put(6), put(11); }, "within a block; 8 bytes are left"},
        {[&] { put(6), put(~0U), put(0); }, "no possible length"},
        {[&] { section(), bytes[whole.size() + 8] = 0; }, "without its byte order"}};
    for (const auto& [add, text] : faults) {
        bytes = whole;
        add();
        EXPECT_THAT(errorOf(), testing::HasSubstr(text));
        EXPECT_EQ(letters, "AAAAAAAA") << text;
    }
}

TEST_F(StoredPcapng, NothingIsReadBeyondItsEndWhereverItIsCut) {
    section();
    interface(ethernet);
    packet(0, 1);
    const std::string pcapng = bytes;
    write({{7, 0, 60, 60}, {7, 1, 60, 60}});
    for (const std::string& whole : {pcapng, contentOf(path)}) {
        for (std::size_t size = 0; size < whole.size(); ++size) {
            bytes = whole.substr(0, size);
            try {
                errorOf();
            } catch (const UserError& refusal) {
                letters.clear();
                EXPECT_EQ(refusal.getCode(), ExitCode::Unreadable);
            }
            EXPECT_LT(letters.size(), 2U);
        }
    }
}

}  // namespace
}  // namespace station
