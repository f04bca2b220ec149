#include "station/recording/recording.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/temporary_folder.h"

namespace station {
namespace {

using testing::HasSubstr;
using CanBytes = std::array<std::uint8_t, 72>;
using LinBytes = std::array<std::uint8_t, 13>;

constexpr std::int64_t messageTime = 1'700'000'000'123'456'999;
const std::string line = "(1700000000.123456) C 123#0001020304050607\n";

class Recordings : public testing::Test {
  protected:
    std::string in(const std::string& name) const { return folder.path() / name; }
    void open(const std::string& name) {
        recording = openRecording(in(name));
        seen = 0;
    }
    void openWithChannel(const std::string& name) {
        open(name);
        recording->addChannel({"C", BusType::Can});
    }
    void writeCan() {
        const CanBytes record{0x23, 1, 0, 0, 0, 0, 0, 8, 0, 1, 2, 3, 4, 5, 6, 7};
        recording->write(0, messageTime, record.data(), record.size());
    }
    /// What the file gained since the last call.
    std::string added() {
        EXPECT_TRUE(recording->flush()) << recording->getErrorText();
        const std::string all = contentOf(recording->getPath());
        return all.substr(std::exchange(seen, all.size()));
    }
    static std::string openingError(const std::string& path, bool overwrite = false) {
        try {
            openRecording(path, overwrite);
        } catch (const std::runtime_error& e) {
            return e.what();
        }
        return "";
    }

    const TemporaryFolder folder;
    std::unique_ptr<Recording> recording;
    std::size_t seen = 0;
};

TEST_F(Recordings, LogNamesBecomeOneShortWordEachAndStayApart) {
    const std::pair<const char*, const char*> names[] = {
        {"A\xC3\xBC\tb#(1)", "A__b__1_"},
        {"A__b__1!", "A__b__1__2"},
        {"", "CAN"},
        {"Combo 4711 rear CAN 1", "4711_rear_CAN_1"},
        {"Combo 24711 rear CAN 1", "11_rear_CAN_1_2"}};
    const CanBytes empty{};
    open("a.log");
    for (const auto& [name, word] : names) {
        recording->write(recording->addChannel({name, BusType::Can}), 0, empty.data(),
                         empty.size());
        EXPECT_EQ(added(), std::string("(0000000000.000000) ") + word + " 000#\n");
    }
}

TEST_F(Recordings, LyingLengthsAndSizesReadNothingOutsideTheRecord) {
    // Records of their exact size on the heap: the address sanitizer sees a read behind them.
    const auto can = std::make_unique<CanBytes>(CanBytes{1, 0, 0, 0, 0, 0, 0, 255});
    const auto lin = std::make_unique<LinBytes>(LinBytes{1, 255});
    for (const auto& [name, canSize] : {std::pair("a.pcapng", 104U), std::pair("a.log", 157U)}) {
        openWithChannel(name);
        added();
        recording->write(0, messageTime, can->data(), can->size());
        EXPECT_EQ(added().size(), canSize);
        recording->write(0, messageTime, lin->data(), lin->size());
        recording->write(1, messageTime, can->data(), can->size());
        EXPECT_EQ(added(), "");
        EXPECT_EQ(recording->getRecordsLost(), 2U);
    }
    open("b.pcapng");
    recording->addChannel({"L", BusType::Lin});
    added();
    recording->write(0, messageTime, lin->data(), lin->size() - 1);
    recording->write(0, messageTime, lin->data(), lin->size());
    EXPECT_EQ(added().size(), 28U + 8U + 8U + 4U);
    EXPECT_TRUE(recording->close());
    const std::string end = contentOf(recording->getPath()).substr(seen);
    ASSERT_EQ(end.size(), 52U) << "the channel's counts";
    EXPECT_EQ(std::pair(end[24], end[36]), std::pair('\2', '\1')) << "came, lost";
}

TEST_F(Recordings, OpeningErrorsNameTheReasonAndKeepWhatIsThere) {
    EXPECT_THAT(openingError(in("none/a.log")), HasSubstr("none/a.log\": No such file"));
    EXPECT_THROW(openRecording(in("log")), UserError);
    EXPECT_THAT(openingError(in("a.txt")), HasSubstr(".pcapng (Wireshark, all buses)"));
    std::filesystem::create_directory(in("d.log"));
    EXPECT_THAT(openingError(in("d.log")), HasSubstr("directory"));
    ASSERT_EQ(::mkfifo(in("p.log").c_str(), 0600), 0);
    EXPECT_NE(openingError(in("p.log")), "");      // and doesn't wait for a reader
    for (const char* ending : {".blf", ".mf4"}) {  // their start time would never get in
        std::filesystem::rename(in("p.log"), in("p.log") + ending);
        const int reader = ::open((in("p.log") + ending).c_str(), O_RDONLY | O_NONBLOCK);
        EXPECT_THAT(openingError(in("p.log") + ending), HasSubstr("pipe that ends in .pcapng"));
        ::close(reader);
        std::filesystem::rename(in("p.log") + ending, in("p.log"));
    }
    openWithChannel("a.log");
    for (int i = 0; i < 20'000; ++i) {  // more than the buffer holds
        writeCan();
    }
    EXPECT_THAT(openingError(in("a.log"), true), HasSubstr("another recording"));
    recording.reset();
    EXPECT_THAT(openingError(in("a.log")), HasSubstr("not empty"));
    EXPECT_EQ(contentOf(in("a.log")).size(), 20'000 * line.size());
    recording = openRecording(in("a.log"), true);
    recording->addChannel({"C", BusType::Can});
    EXPECT_NE(contentOf(in("a.log")), "") << "until something is written";
    writeCan();
    recording->close();
    EXPECT_EQ(contentOf(in("a.log")), line);
    EXPECT_EQ(openingError(in("a.log"), true), "");
    EXPECT_EQ(contentOf(in("a.log")), "");
}

}  // namespace
}  // namespace station
