#include <zstd.h>

#include <random>

#include "station/recording/input_file.h"
#include "station/recording/recording_series.h"

#include "tests/station/recording/read_back.h"
#include "tests/support/temporary_folder.h"

namespace station {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class CompressedParts : public testing::Test {
  protected:
    /// A frame as the library makes it, or by its streaming interface, without the content's size.
    static std::string frame(const std::string& content, bool hasSize = true, int windowBits = 0) {
        ZSTD_CCtx* const context = ZSTD_createCCtx();
        ZSTD_CCtx_setParameter(context, ZSTD_c_checksumFlag, 1);
        ZSTD_CCtx_setParameter(context, ZSTD_c_windowLog, windowBits);
        std::string packed(ZSTD_compressBound(content.size()), '\0');
        ZSTD_outBuffer output{packed.data(), packed.size(), 0};
        ZSTD_inBuffer input{content.data(), content.size(), 0};
        if (hasSize) {
            ZSTD_CCtx_setPledgedSrcSize(context, content.size());
        }
        ZSTD_compressStream2(context, &output, &input, ZSTD_e_flush);
        ZSTD_compressStream2(context, &output, &input, ZSTD_e_end);
        ZSTD_freeCCtx(context);
        packed.resize(output.pos);
        return packed;
    }
    static std::string passedOver(const std::string& content) {
        return std::string("\x5E\x2A\x4D\x18", 4) + static_cast<char>(content.size()) +
               std::string(3, '\0') + content;
    }
    std::string put(const std::string& name, const std::string& bytes) const {
        const std::string path = folder.path() / name;
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }
    static std::string lines(std::size_t count) {
        std::string text;
        for (std::size_t i = 0; i < count; ++i) {
            text += "(" + std::to_string(1'700'000'000 + i) + ".000000) can0 123#" +
                    std::to_string(10 + i * i % 90) + "\n";
        }
        return text;
    }
    static std::string view(InputFile& file, std::uint64_t offset, std::size_t size) {
        const auto bytes = file.view(offset, size);
        return {bytes.begin(), bytes.end()};
    }
    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
            found.push_back(entry.path().filename());
        }
        std::sort(found.begin(), found.end());
        return found;
    }
    /// Of a file that takes long, and no room.
    std::string begin(PartCompressor& compressor, const std::string& name) const {
        const std::string path = put(name, "");
        std::filesystem::resize_file(path, std::uintmax_t{1} << 40U);
        compressor.add(path);
        for (auto progress = compressor.getProgress(); progress && progress->share == 0.0;) {
            progress = compressor.getProgress();
        }
        return path;
    }
    static void finish(const PartCompressor& compressor) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (compressor.getProgress() && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_FALSE(compressor.getProgress());
    }

    const TemporaryFolder folder;
};

TEST_F(CompressedParts, AreReadAtAnyOffsetWhateverTheirFrames) {
    const std::string a = lines(40'000), b = lines(100), repeated(900, '\n');
    const std::string all = a + repeated + b + b + a;
    const std::string frames = frame(a) + frame("") + frame(repeated) + passedOver("abc") +
                               frame(b) + frame(b, false) + frame("", false) + frame(a, false);
    for (const std::string& packed : {frames, frame(all), frame(all, false)}) {
        InputFile file(put("a.log.zst", packed));
        ASSERT_EQ(file.getSize(), all.size());
        std::mt19937 random(1);
        for (int i = 0; i < 40; ++i) {
            const std::size_t offset = random() % (all.size() + 9), size = random() % 3'000'000;
            EXPECT_TRUE(view(file, offset, size) == all.substr(std::min(offset, all.size()), size));
        }
        EXPECT_EQ(file.getErrorText(), "");
        const Contents contents = readBack(file.getPath());
        EXPECT_EQ(contents.messages.size(), 80'200U);
        EXPECT_EQ(contents.error, "");
    }
}

TEST_F(CompressedParts, AreReadInFrontOfWhereTheyAreTornOrDamaged) {
    const std::string text = lines(400);
    const std::string first = text.substr(0, text.size() / 2), rest = text.substr(first.size());
    const std::size_t firstSize = frame(first).size();
    const std::string packed = frame(first) + frame(rest, false);
    std::size_t before = 0;
    for (std::size_t length = 0; length < packed.size(); ++length) {
        const Contents contents = readBack(put("a.log.zst", packed.substr(0, length)));
        EXPECT_GE(contents.messages.size(), before) << "they only become more";
        before = contents.messages.size();
        if (length >= ZstdInput::markSize && length != firstSize) {
            EXPECT_THAT(contents.error, HasSubstr("bytes of it were left")) << length;
        }
    }
    EXPECT_GT(before, 199U);
    const std::vector<std::string> whole = readBack(put("a.log.zst", packed)).messages;
    for (std::size_t i = ZstdInput::markSize; i < packed.size(); ++i) {
        std::string damaged = packed;
        damaged[i] = static_cast<char>(damaged[i] ^ 0x41);
        const Contents contents = readBack(put("a.log.zst", damaged));
        EXPECT_TRUE(!contents.error.empty() || contents.messages == whole) << i;
    }
}

TEST_F(CompressedParts, TakeNoMoreMemoryThanARecordingIsWorth) {
    const std::string zeros(64 << 20, '\0');
    for (const bool hasSize : {true, false}) {
        InputFile bomb(put("a.zst", frame(zeros, hasSize)));
        EXPECT_LT(bomb.getSize(), 8U << 20U);
        InputFile wide(put("a.zst", frame(lines(500'000), hasSize, 27)));
        view(wide, 0, 1);
        EXPECT_THAT(wide.getErrorText(), HasSubstr(hasSize ? "memory" : "damaged"));
    }
    InputFile file(put("a.log.zst", frame(lines(90'000))));
    const std::size_t last = file.getSize() - 1;
    int times = 0;
    for (; times < 3000 && !view(file, times % 2 == 0 ? 0 : last, 1).empty(); ++times) {
    }
    EXPECT_LT(times, 3000);
    EXPECT_THAT(file.getErrorText(), HasSubstr("too often"));
}

TEST_F(CompressedParts, TakeThePlaceOfThoseThatAreClosedAndAreKeptOrRemovedAsThose) {
    const auto compressor = std::make_shared<PartCompressor>();
    const std::string left = put("a-20200101T000000Z-0001.log.zst.tmp", "left");
    const PartRules rules{.records = 2, .keep = 3, .compressor = compressor};
    RecordingSeries series(folder.path() / "a.log", false, rules);
    EXPECT_FALSE(std::filesystem::exists(left));
    series.addChannel({"C", BusType::Can});
    const std::array<std::uint8_t, 72> record{};
    for (std::int64_t i = 0; i < 12; ++i) {
        series.write(0, i * 1'000'000'000, record.data(), record.size());
        if (i % 4 == 3) {
            finish(*compressor);
        }
    }
    series.close();
    finish(*compressor);
    const std::vector<std::string> there = names();
    ASSERT_EQ(there.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_THAT(there[i], HasSubstr("-000" + std::to_string(i + 4) + ".log.zst"));
        const Contents contents = readBack(folder.path() / there[i]);
        const std::string time = std::to_string(6 + 2 * i) + "000000000 ";
        EXPECT_THAT(contents.messages, ElementsAre(HasSubstr(" " + time), testing::_));
    }
    EXPECT_THAT(series.takeTexts(), IsEmpty());
}

TEST_F(CompressedParts, AreOneFrameHoweverLongAsOthersMisreadWhatLiesAcrossTwo) {
    const std::string content = lines(200'000);
    ASSERT_GT(content.size(), 6U << 20U);
    PartCompressor compressor;
    compressor.add(put("a.log", content));
    finish(compressor);
    EXPECT_THAT(compressor.takeTexts(), IsEmpty());
    const std::string packed = contentOf(folder.path() / "a.log.zst");
    EXPECT_EQ(ZSTD_findFrameCompressedSize(packed.data(), packed.size()), packed.size());
    EXPECT_EQ(ZSTD_getFrameContentSize(packed.data(), packed.size()), content.size());
    InputFile file(folder.path() / "a.log.zst");
    EXPECT_TRUE(view(file, 0, content.size() + 1) == content);
}

TEST_F(CompressedParts, StayAsTheyAreWhereTheyCannotBeCompressed) {
    PartCompressor compressor;
    const std::string taken = put("a.log", "a"), other = put("b.log", "b"),
                      empty = put("c.log", "");
    put("a.log.zst", "another run's");
    put("b.log.zst", "another run's");
    for (const std::string& path : {taken, other, empty}) {
        compressor.add(path);
    }
    finish(compressor);
    EXPECT_THAT(compressor.takeTexts(), ElementsAre(StartsWith(taken))) << "once";
    EXPECT_EQ(contentOf(folder.path() / "a.log.zst"), "another run's");
    EXPECT_THAT(names(), ElementsAre("a.log", "a.log.zst", "b.log", "b.log.zst", "c.log"));

    const std::string dropped = begin(compressor, "d.log");
    EXPECT_FALSE(compressor.remove(dropped));
    finish(compressor);
    begin(compressor, "e.log");
    compressor.cancel();
    finish(compressor);
    EXPECT_THAT(names(), ElementsAre("a.log", "a.log.zst", "b.log", "b.log.zst", "c.log", "e.log"));
    EXPECT_THAT(compressor.takeTexts(), IsEmpty());
}

}  // namespace
}  // namespace station
