#include "station/recording/recording_series.h"

#include <regex>

#include "tests/support/temporary_folder.h"

namespace station {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using namespace std::chrono_literals;

/// Messages a second apart on one channel of a log, numbered in their identifiers.
class RecordingSeriesTest : public ::testing::Test {
  protected:
    void open(const PartRules& rules) {
        series = std::make_unique<RecordingSeries>(path, false, rules);
        series->addChannel({"C", BusType::Can});
    }
    void write(std::uint32_t count) {
        for (std::uint32_t i = 0; i < count; ++i, ++sent) {
            std::array<std::uint8_t, 72> record{};
            std::memcpy(record.data(), &sent, sizeof sent);
            series->write(0, 1'000'000'000LL * sent, record.data(), record.size());
        }
    }
    /// A second and more later each time.
    std::vector<std::string> flush() {
        series->flush(now += 2s);
        return series->takeTexts();
    }
    /// The identifiers in each of the files, in the order of their names, which are as they must
    /// be.
    std::vector<std::vector<int>> parts() const {
        std::map<std::string, std::vector<int>> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder.path() / "d")) {
            const std::string name = entry.path().filename();
            EXPECT_TRUE(
                std::regex_match(name, std::regex("a(-20[0-9]{6}T[0-9]{6}Z-000[0-9])?\\.log")))
                << name;
            std::ifstream file(entry.path());
            for (std::string line; std::getline(file, line);) {
                found[name].push_back(std::stoi(line.substr(line.find('#') - 3, 3), nullptr, 16));
            }
        }
        std::vector<std::vector<int>> numbers;
        for (auto& [name, all] : found) {
            numbers.push_back(std::move(all));
        }
        return numbers;
    }

    const TemporaryFolder folder;
    const std::string path =
        (std::filesystem::create_directory(folder.path() / "d"), folder.path() / "d" / "a.log");
    std::unique_ptr<RecordingSeries> series;
    RecordingSeries::Clock::time_point now;
    std::uint32_t sent = 0;
};

TEST_F(RecordingSeriesTest, EachRuleBeginsAnotherPart) {
    open({.bytes = 60, .nanoseconds = 3'000'000'000, .records = 4});
    write(5);
    sent += 2;
    write(1);  // 7 is within three seconds of 4
    sent += 2;
    write(1);
    flush();  // 4 lines of 25 bytes are in the file, and count
    series->endPart();
    write(2);
    flush();
    write(1);
    flush();
    write(1);
    series->close();
    EXPECT_THAT(parts(), ElementsAre(ElementsAre(0, 1, 2), ElementsAre(3, 4), ElementsAre(7),
                                     ElementsAre(10), ElementsAre(11, 12, 13), ElementsAre(14)));
    EXPECT_EQ(series->getRecordsWritten(), 11U);
    EXPECT_EQ(series->getChannelCounts().at(0).written, 11U);
    EXPECT_EQ(series->getPartCount(), 6U);
}

TEST_F(RecordingSeriesTest, OnlyTheNewestAreKept) {
    open({.records = 2, .keep = 2});
    const std::string other = RecordingSeries(path, false, {.records = 2}).getPartPath();
    EXPECT_NE(other, series->getPartPath()) << "in the same second, if need be";
    EXPECT_TRUE(std::filesystem::remove(other));
    write(9);
    series->close();
    EXPECT_THAT(parts(), ElementsAre(ElementsAre(6, 7), ElementsAre(8)));
    EXPECT_EQ(series->getRecordsWritten(), 9U);
}

TEST_F(RecordingSeriesTest, WhatFailsGoesOnInAnotherPartAndCountsWhatWasLost) {
    open({.goesOn = true});
    write(2);
    EXPECT_THAT(flush(), IsEmpty());
    std::filesystem::rename(folder.path() / "d", folder.path() / "gone");
    write(1);
    EXPECT_THAT(flush(), ElementsAre(testing::AllOf(HasSubstr("moved away"),
                                                    HasSubstr("goes on in another file"))));
    EXPECT_THAT(flush(), IsEmpty()) << "told already";
    write(3);
    EXPECT_EQ(series->getRecordsLost(), 3U);
    std::filesystem::create_directory(folder.path() / "d");
    EXPECT_THAT(flush(), ElementsAre(HasSubstr("Recording goes on, in")));
    write(1);
    EXPECT_THAT(flush(), IsEmpty());
    std::filesystem::remove(series->getPartPath());
    EXPECT_THAT(flush(), ElementsAre(HasSubstr("deleted"))) << "a new failure";
    flush();
    write(1);
    series->close();
    EXPECT_THAT(parts(), ElementsAre(ElementsAre(7)));
    EXPECT_EQ(series->getRecordsWritten(), 4U);
    EXPECT_EQ(series->getChannelCounts().at(0).lost, 4U);
    EXPECT_THAT(series->getErrorText(), HasSubstr("deleted"));
}

TEST_F(RecordingSeriesTest, NothingIsWrittenWhileTheDiskHasTooLittle) {
    open({.leastFreeBytes = std::uint64_t{1} << 60U});
    write(2);
    EXPECT_THAT(flush(), ElementsAre(HasSubstr("--min-free")));
    write(3);
    EXPECT_THAT(flush(), IsEmpty());
    series->close();
    EXPECT_EQ(series->getRecordsWritten(), 2U);
    EXPECT_EQ(series->getRecordsLost(), 3U);
    EXPECT_TRUE(series->hasFailed());
}

}  // namespace
}  // namespace station
