#include "station/recording/recording.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

namespace station {
namespace {

using testing::HasSubstr;
using CanBytes = std::array<std::uint8_t, 72>;
using LinBytes = std::array<std::uint8_t, 13>;

constexpr std::int64_t time = 1'700'000'000'123'456'999;
const std::string line = "(1700000000.123456) C 123#0001020304050607\n";

std::string fromHex(const std::string& text) {
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        i = text.find_first_not_of(' ', i);
        bytes.push_back(static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

std::string contentOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

class Recordings : public testing::Test {
  protected:
    Recordings() {
        std::string name = testing::TempDir() + "recording-XXXXXX";
        directory = ::mkdtemp(name.data());
    }
    ~Recordings() override { std::filesystem::remove_all(directory); }

    std::string in(const std::string& name) const { return directory / name; }
    void open(const std::string& name) {
        recording = openRecording(in(name));
        seen = 0;
    }
    void openWithChannel(const std::string& name) {
        open(name);
        recording->addChannel({"C", BusType::Can});
    }
    void writeCan(std::uint32_t id, bool extended, std::uint8_t length, std::int64_t utc = time,
                  std::size_t channel = 0) {
        CanBytes record{};
        std::memcpy(record.data(), &id, sizeof id);
        record[4] = extended ? 1 : 0;
        record[7] = length;
        for (std::uint8_t i = 0; i < length && i < 64; ++i) {
            record[8U + i] = i;
        }
        recording->write(channel, utc, record.data(), record.size());
    }
    void writeLines(int count) {
        for (int i = 0; i < count; ++i) {
            writeCan(0x123, false, 8);
        }
    }
    /// What the file gained since the last call.
    std::string added() {
        EXPECT_TRUE(recording->flush()) << recording->errorText();
        const std::string all = contentOf(recording->path());
        return all.substr(std::exchange(seen, all.size()));
    }
    static std::string openingError(const std::string& path, bool overwrite = false) {
        try {
            openRecording(path, overwrite);
        } catch (const RecordingError& e) {
            return e.what();
        }
        return "";
    }

    std::filesystem::path directory;
    std::unique_ptr<Recording> recording;
    std::size_t seen = 0;
};

TEST_F(Recordings, PcapngBlocksHoldTheFieldsInTheirPlaces) {
    open("a.PcapNG");
    EXPECT_EQ(added(), fromHex("0A0D0D0A 30000000 4D3C2B1A 0100 0000 FFFFFFFFFFFFFFFF"
                               "0400 0B00 636D702D73746174696F6E00 00000000 30000000"));
    recording->addChannel({"L\xC3\xBC", BusType::Lin});
    EXPECT_EQ(added(), fromHex("01000000 28000000 D400 0000 10000000"
                               "0200 0300 4CC3BC00 0900 0100 09000000 00000000 28000000"));
    const LinBytes enhanced = {0x21, 2, 0, 0, 0x0F, 0xA1, 0, 0, 0, 0, 0, 0, 0xED};
    recording->write(0, time, enhanced.data(), enhanced.size());
    EXPECT_EQ(added(), fromHex("06000000 2C000000 00000000 FE9C9717 E7CD853D 0A000000 0A000000"
                               "01 000000 22 61 ED 00 0FA1 0000 2C000000"));
    // Added after a packet was written, as a module that shows up late is.
    recording->addChannel({"C", BusType::Can});
    EXPECT_EQ(added(), fromHex("01000000 28000000 E300 0000 48000000"
                               "0200 0100 43000000 0900 0100 09000000 00000000 28000000"));
    writeCan(0x18FF0010, true, 9, -1, 1);
    EXPECT_EQ(added(), fromHex("06000000 34000000 01000000 00000000 00000000 11000000 11000000"
                               "98FF0010 09 04 0000 000102030405060708 000000 34000000"));
    recording->addChannel(
        {std::string(1023, 'x') + "\xC3\xBC" + std::string(70'000, 'y'), BusType::Can});
    EXPECT_EQ(added().size(), 16U + 4U + 1024U + 8U + 4U + 4U);  // the name cut between characters
}

TEST_F(Recordings, LogLinesCutTimesAndKeepWhatFitsNoReader) {
    openWithChannel("a.log");
    writeCan(0x123, false, 8);
    EXPECT_EQ(added(), line);
    writeCan(0x1B, false, 9, -1);  // no CAN FD frame has 9 bytes
    EXPECT_EQ(added(), "(0000000000.000000) C 01B##0000102030405060708000000\n");
    writeCan(0xE0012345, false, 0, 0);  // no standard identifier has 17 bits
    EXPECT_EQ(added(), "(0000000000.000000) C 00012345#\n");
    EXPECT_THROW(recording->addChannel({"L", BusType::Lin}), RecordingError);
}

TEST_F(Recordings, LogNamesBecomeOneShortWordEachAndStayApart) {
    const std::pair<const char*, const char*> names[] = {
        {"A\xC3\xBC\tb#(1)", "A__b__1_"},
        {"A__b__1!", "A__b__1__2"},
        {"", "CAN"},
        {"Combo 4711 rear CAN 1", "4711_rear_CAN_1"},
        {"Combo 24711 rear CAN 1", "11_rear_CAN_1_2"}};
    open("a.log");
    for (const auto& [name, word] : names) {
        writeCan(1, false, 0, 0, recording->addChannel({name, BusType::Can}));
        EXPECT_EQ(added(), std::string("(0000000000.000000) ") + word + " 001#\n");
    }
}

TEST_F(Recordings, LyingLengthsAndSizesReadNothingOutsideTheRecord) {
    // Records of their exact size on the heap: the address sanitizer sees a read behind them.
    const auto can = std::make_unique<CanBytes>(CanBytes{1, 0, 0, 0, 0, 0, 0, 255});
    const auto lin = std::make_unique<LinBytes>(LinBytes{1, 255});
    for (const auto& [name, canSize] : {std::pair("a.pcapng", 104U), std::pair("a.log", 157U)}) {
        openWithChannel(name);
        added();
        recording->write(0, time, can->data(), can->size());
        EXPECT_EQ(added().size(), canSize);
        recording->write(0, time, lin->data(), lin->size());
        recording->write(1, time, can->data(), can->size());
        EXPECT_EQ(added(), "");
        EXPECT_EQ(recording->recordsLost(), 2U);
    }
    open("b.pcapng");
    recording->addChannel({"L", BusType::Lin});
    added();
    recording->write(0, time, lin->data(), lin->size() - 1);
    recording->write(0, time, lin->data(), lin->size());
    EXPECT_EQ(added().size(), 28U + 8U + 8U + 4U);
}

TEST_F(Recordings, OpeningErrorsNameTheReasonAndKeepWhatIsThere) {
    EXPECT_THAT(openingError(in("none/a.log")), HasSubstr("none/a.log\": No such file"));
    EXPECT_THROW(openRecording(in("log")), UnknownEnding);
    EXPECT_THAT(openingError(in("a.asc")), HasSubstr(".pcapng (CAN, CAN FD and LIN)"));
    std::filesystem::create_directory(in("d.log"));
    EXPECT_THAT(openingError(in("d.log")), HasSubstr("directory"));
    ASSERT_EQ(::mkfifo(in("p.log").c_str(), 0600), 0);
    EXPECT_NE(openingError(in("p.log")), "");  // and doesn't wait for a reader
    openWithChannel("a.log");
    writeLines(20'000);  // more than the buffer holds
    EXPECT_THAT(openingError(in("a.log"), true), HasSubstr("another recording"));
    recording.reset();
    EXPECT_THAT(openingError(in("a.log")), HasSubstr("not empty"));
    EXPECT_EQ(contentOf(in("a.log")).size(), 20'000 * line.size());
    EXPECT_EQ(openingError(in("a.log"), true), "");
    EXPECT_EQ(contentOf(in("a.log")), "");
}

/// Runs `body` in a child process that may write files of at most `limit` bytes, as on a full disk.
bool holdsWithFileLimit(rlim_t limit, const std::function<bool()>& body) {
    const pid_t child = ::fork();
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit fileSize = {limit, limit};
        ::setrlimit(RLIMIT_FSIZE, &fileSize);
        ::_exit(body() ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST_F(Recordings, FullDiskLeavesWholeRecordsAndOneError) {
    for (const int flushed : {0, 10}) {
        openWithChannel("full" + std::to_string(flushed) + ".log");
        const auto fill = [&] {
            writeLines(flushed);
            recording->flush();
            writeLines(10'000 - flushed);  // more than the buffer holds
            const std::string error = recording->errorText();
            writeLines(1);
            return !recording->close() && recording->errorText() == error &&
                   error.find("File too large. It holds 100 messages") != std::string::npos &&
                   recording->recordsWritten() == 100 && recording->recordsLost() == 9'901 &&
                   recording->bytesWritten() == 100 * line.size();
        };
        EXPECT_TRUE(holdsWithFileLimit(100 * line.size() + line.size() / 2, fill));
        const std::string content = contentOf(recording->path());
        ASSERT_EQ(content.size(), 100 * line.size());
        EXPECT_EQ(content.substr(99 * line.size()), line);
    }
    EXPECT_TRUE(holdsWithFileLimit(20, [&] { return openingError(in("a.pcapng")) != ""; }));
}

TEST_F(Recordings, VanishedOrChangedFileIsAnErrorThatTellsWhatIsLeft) {
    const std::string file = in("a.log");
    const auto move = [&] { std::filesystem::rename(file, in("moved.log")); };
    const auto replace = [&] { move(), std::ofstream(file) << "other"; };
    const std::tuple<std::function<void()>, const char*, std::uint64_t> faults[] = {
        {[&] { std::filesystem::remove(file); }, "deleted", 0},
        {move, "holds 2 messages", 2},
        {replace, "holds 2 messages", 2},
        {[&] { std::filesystem::resize_file(file, 0); }, "another program", 2}};
    for (const auto& [happen, text, left] : faults) {
        std::filesystem::remove(file);
        openWithChannel("a.log");
        writeLines(1);
        ASSERT_TRUE(recording->flush());
        happen();
        writeLines(1);
        EXPECT_FALSE(recording->close());
        EXPECT_THAT(recording->errorText(), HasSubstr(text));
        EXPECT_EQ(recording->recordsWritten(), left);
        EXPECT_EQ(recording->recordsLost(), 2 - left);
    }
}

}  // namespace
}  // namespace station
