#include "station/recording/recording_set.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>

namespace station {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class RecordingSets : public testing::Test {
  protected:
    RecordingSets() {
        std::string name = testing::TempDir() + "recordings-XXXXXX";
        directory = ::mkdtemp(name.data());
    }
    ~RecordingSets() override { std::filesystem::remove_all(directory); }

    std::string in(const std::string& name) const { return directory / name; }
    void openWithLinAndCan(const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            set->open(in(name));
        }
        set->addChannel({"L", BusType::Lin});
        set->addChannel({"C", BusType::Can});
    }
    void writeBoth() {
        set->write(0, 1'000'000'000, lin.data(), lin.size());
        set->write(1, 2'000'000'000, can.data(), can.size());
    }
    std::uint64_t written(std::size_t recording) const {
        return set->all()[recording]->recordsWritten();
    }

    const std::array<std::uint8_t, 13> lin{1, 1};
    const std::array<std::uint8_t, 72> can{1, 1, 0, 0, 0, 0, 0, 1, 0xAB};
    std::filesystem::path directory;
    std::unique_ptr<RecordingSet> set = std::make_unique<RecordingSet>();
};

TEST_F(RecordingSets, OneThatHoldsLessKeepsItsChannelsApart) {
    openWithLinAndCan({"a.log", "a.pcapng"});
    writeBoth();
    EXPECT_THAT(set->thatRefuse(BusType::Lin), ElementsAre(in("a.log")));
    EXPECT_THAT(set->close(), IsEmpty());
    EXPECT_EQ(written(0), 1U);
    EXPECT_EQ(written(1), 2U);
    std::ifstream log(in("a.log"));
    std::string line;
    std::getline(log, line);
    EXPECT_EQ(line, "(0000000002.000000) C 101#AB");
}

TEST_F(RecordingSets, OneThatFailsIsToldOnceAndTheOthersGoOn) {
    openWithLinAndCan({"a.pcapng", "b.pcapng"});
    writeBoth();
    EXPECT_THAT(set->flush(), IsEmpty());
    std::filesystem::remove(in("a.pcapng"));
    EXPECT_THAT(set->flush(), ElementsAre(HasSubstr("a.pcapng")));
    writeBoth();
    EXPECT_THAT(set->flush(), IsEmpty());
    EXPECT_TRUE(set->hasFailed());
    EXPECT_FALSE(set->haveAllFailed());
    EXPECT_THAT(set->close(), IsEmpty());
    EXPECT_EQ(written(1), 4U);
    EXPECT_EQ(std::filesystem::file_size(in("b.pcapng")), set->all()[1]->bytesWritten());
}

TEST_F(RecordingSets, CommandThatFailsBeforeItBeginsLeavesNoFile) {
    openWithLinAndCan({"a.pcapng"});
    EXPECT_THROW(set->open(in("b.txt")), UnknownEnding);
    set.reset();
    EXPECT_FALSE(std::filesystem::exists(in("a.pcapng")));

    set = std::make_unique<RecordingSet>();
    openWithLinAndCan({"c.pcapng", "c.log"});
    set->write(0, 1, lin.data(), lin.size());
    set.reset();  // an exception while it runs
    EXPECT_TRUE(std::filesystem::exists(in("c.pcapng")));

    set = std::make_unique<RecordingSet>();
    openWithLinAndCan({"d.pcapng"});
    set->close();
    set.reset();  // a run without messages
    EXPECT_TRUE(std::filesystem::exists(in("d.pcapng")));
}

}  // namespace
}  // namespace station
