#include "station/stream/spool.h"

#include "station/errors.h"
#include "tests/station/stream/spool_case.h"

namespace station {
namespace {

using namespace std::chrono_literals;

TEST_F(SpoolTest, WhateverIsInItsFilesWholeBatchesInFrontAreReadAndNothingElse) {
    openSpool();
    record(2);
    const std::string whole = contentOf(partPath);
    const std::size_t end = whole.find(whole.substr(0, 4), 1);
    const auto expect = [&](const std::string& bytes, std::size_t changedAt, std::size_t most) {
        std::ofstream(partPath, std::ios::trunc) << bytes;
        openSpool();
        while (spool->countNext()) {
        }
        Spool::Reader reader = spool->startReading(Spool::Lane::Earlier);
        Batch batch;
        std::size_t found = 0;
        std::size_t position = 0;
        for (; spool->read(reader, batch); ++found, position += batch.payload.size()) {
            EXPECT_LE(batch.payload.size(), bytes.size());
        }
        EXPECT_GE(found, changedAt >= whole.size() / 2 ? 1U : 0U) << changedAt;
        EXPECT_LE(found, most) << changedAt;
        EXPECT_EQ(spool->takeTexts().empty(), position == bytes.size()) << changedAt;
    };
    for (std::size_t size = 0; size < whole.size(); size += size % 3000 < 300 ? 1 : 97) {
        expect(whole.substr(0, size), size, size < end ? 0 : 1);
    }
    for (std::size_t at = 0; at < 200; ++at) {
        std::string changed = whole;
        changed[at] = static_cast<char>(changed[at] ^ 0x41);
        expect(changed, 0, 2);
    }
    expect(whole + std::string(5000, '\0'), whole.size(), 2);
}

TEST_F(SpoolTest, ANoteThatIsNotOfItsPartsTakesNothingAway) {
    openSpool();
    record(2);
    const auto note = folder.path() / "spool" / spoolNoteName;
    const auto open = [&](const std::string& text) {
        spool.reset();
        std::ofstream(note) << text;
        openSpool();
    };
    const std::string part = "00000001-acknowledged-0001.pcapng ";
    for (const std::string& text : {part + "262", part + "99999999", part, std::string(),
                                    std::string("99999999-acknowledged-0001.pcapng 4")}) {
        open(text);
        EXPECT_EQ(readAll(), allSent()) << text;
        EXPECT_FALSE(spool->takeTexts().empty() || std::filesystem::exists(note)) << text;
    }
    open(part + std::to_string(firstEnd()));
    EXPECT_EQ(readAll().size(), 100U);
    EXPECT_TRUE(spool->takeTexts().empty());
}

TEST_F(SpoolTest, WhatWasDamagedOrDeletedIsCountedAndTheRestIsRead) {
    openSpool();
    record(2);
    const std::string whole = contentOf(partPath);
    const std::string second = whole.substr(firstEnd());
    for (const auto& [bytes, found, lost] :
         {std::tuple{'x' + whole.substr(1), 100U, 1U},  // each as long as the one before, or longer
          {whole + second.substr(0, 99), 200U, 0U},
          {whole + std::string(500, '\0'), 200U, 1U},
          {whole + second.substr(0, second.size() - 1), 200U, 0U},
          {whole + 'x' + second.substr(1), 200U, 1U}}) {
        std::ofstream(partPath, std::ios::trunc) << bytes;
        openSpool();
        EXPECT_EQ(readAll().size(), found);
        EXPECT_EQ(spool->getCounts().lost, lost) << bytes.size();
    }
    std::filesystem::remove(partPath);
    record(1);
    EXPECT_EQ(readAll().size(), 100U);
    EXPECT_EQ(spool->getCounts().lost, 1U + 200U);
    const auto session = makeSession();
    const std::string name = spool->nameNext();
    recordPart(name, 1, session, 2);
    std::filesystem::resize_file(partPath, std::filesystem::file_size(partPath) - 99);
    recordPart(name, 2, session, 1);
    EXPECT_TRUE(spool->saveNote());
    openSpool();
    EXPECT_EQ(readAll().size(), 300U);
    EXPECT_EQ(spool->getCounts().lost, 1U) << "no kill ended the first of its parts";
}

TEST_F(SpoolTest, WhatIsCutOffWhileItRunsIsCountedAndNotSentInPart) {
    openSpool();
    record(2);
    const std::string whole = contentOf(partPath);
    const std::uint64_t end = firstEnd();
    for (const bool isCounted : {false, true}) {
        for (const std::uint64_t size :
             {std::uint64_t{0}, end - 1, end, end + 99, whole.size() - 1}) {
            std::ofstream(partPath, std::ios::trunc) << whole;
            openSpool();
            while (isCounted && spool->countNext()) {
            }
            Spool::Reader reader = spool->startReading(Spool::Lane::Earlier);
            Batch batch;
            ASSERT_TRUE(spool->read(reader, batch));
            spool->acknowledge(reader.getPlace(), batch.messages);
            std::filesystem::resize_file(partPath, size);
            while (spool->countNext()) {
            }
            EXPECT_LE(spool->getCounts().messages, 100U) << size;
            EXPECT_FALSE(spool->read(reader, batch)) << size;
            EXPECT_GE(spool->getCounts().lost, isCounted ? 100U : 1U) << size;
            EXPECT_LE(spool->getCounts().lost, 100U) << size;
            EXPECT_EQ(spool->getCounts().messages, 0U) << size;
            EXPECT_FALSE(spool->takeTexts().empty()) << size;
        }
    }
}

TEST_F(SpoolTest, APartThatIsThroughGivesItsRoomBackAtOnceOrWhenItCan) {
    namespace fs = std::filesystem;
    openSpool();
    record(1);
    Spool::Reader reader = spool->startReading(Spool::Lane::Live);
    Batch batch;
    ASSERT_TRUE(spool->read(reader, batch));
    const fs::path hindrance = fs::path(partPath) / "in it";
    fs::remove(partPath);
    fs::create_directories(hindrance);
    spool->acknowledge(reader.getPlace(), batch.messages);
    EXPECT_FALSE(spool->read(reader, batch));
    for (const auto& open : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        EXPECT_NE(fs::read_symlink(open, gone).string(), partPath + " (deleted)");
    }
    EXPECT_THAT(spool->takeTexts(), testing::ElementsAre(testing::HasSubstr("can't be removed")));
    spool->saveNote();
    fs::remove(hindrance);
    spool->saveNote();
    EXPECT_FALSE(fs::exists(partPath));
    EXPECT_TRUE(spool->takeTexts().empty()) << "it was said once";
}

TEST_F(SpoolTest, APipeInPlaceOfItsFilesIsNotWaitedFor) {
    openSpool();
    record(1);
    spool.reset();
    const std::string note = folder.path() / "spool" / spoolNoteName;
    for (const std::string& path : {note, partPath}) {
        std::filesystem::remove(path);
        ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
        openSpool();
        EXPECT_EQ(readAll().size(), path == note ? 100U : 0U);
    }
}

TEST_F(SpoolTest, WhatIsDeletedBetweenRunsIsReportedOnceAndWhatTheStationRemovedIsNot) {
    const auto measure = [&](int parts) {
        const auto session = makeSession();
        const std::string name = spool->nameNext();
        for (int part = 1; part <= parts; ++part) {
            recordPart(name, part, session, part == 2 ? 0 : 2);  // a disk that was full for a while
        }
    };
    const auto acknowledge = [&](int batches) {
        Spool::Reader reader = spool->startReading(Spool::Lane::Earlier);
        for (Batch batch; batches-- > 0 && spool->read(reader, batch);) {
            spool->acknowledge(reader.getPlace(), batch.messages);
        }
    };
    const auto expect = [&](std::uint64_t lost, const std::string& text) {
        openSpool();
        EXPECT_EQ(spool->getCounts().lost, lost) << text;
        const auto texts = spool->takeTexts();
        EXPECT_EQ(texts.empty(), text.empty()) << text;
        EXPECT_TRUE(texts.empty() || texts.front().find(text) != std::string::npos) << texts[0];
    };
    const auto remove = [&](const std::string& name) {
        EXPECT_TRUE(std::filesystem::remove(spoolFolder / name)) << name;
    };
    openSpool();
    measure(8);
    expect(0, "");
    acknowledge(5);  // parts 1 and 3, and one of the fourth's; then it is killed
    expect(0, "");
    remove("00000001-s-0004.pcapng");
    remove("00000001-s-0005.pcapng");
    expect(2, "00000001, part 4 to 5");
    expect(0, "");
    remove("00000001-s-0007.pcapng");
    measure(1);
    expect(1, "00000001, part 7");
    acknowledge(4);
    expect(0, "");
    openSpool(1);  // which has no room for both
    measure(3);
    expect(0, "");
    remove("00000003-s-0003.pcapng");
    expect(2, "00000003, part 2 to 3");
    measure(3);
    EXPECT_TRUE(spool->saveNote());
    remove("00000001-s-0003.pcapng");
    expect(2, "00000001, part 2 to 3");
    const auto cut = spoolFolder / "00000001-s-0001.pcapng";
    std::filesystem::resize_file(cut, std::filesystem::file_size(cut) - 1);
    expect(1, "00000001, part 1 from byte ");
    expect(0, "");
    measure(1);
    remove(spoolNoteName);
    expect(0, "the stream's spool: it has no note");
    expect(0, "");
}

TEST_F(SpoolTest, TheFirstEndOfASessionIsBehindTheFirstBatchOfEachOfItsSubjects) {
    openSpool();
    const auto session = makeSession();
    session->isByChannel = true;
    {
        SpoolPart part(spoolFolder / "00000001-s-0001.pcapng", spool, session);
        const CanFrame frame;
        for (const char* const module : {"early", "late", "silent"}) {
            part.addChannel({"C", BusType::Can, module});
        }
        part.write(0, 1, &frame, sizeof frame);
        part.flush();
        session->batchAge = 1h;
        part.write(1, 2, &frame, sizeof frame);
        part.setLast();
    }
    Spool::Reader reader = spool->startReading(Spool::Lane::Live);
    std::set<std::string> ended;
    std::map<std::string, std::uint64_t> numbers;
    for (Batch batch; spool->read(reader, batch);) {
        EXPECT_TRUE(ended.empty() || batch.number > 1) << batch.subject;
        EXPECT_EQ(batch.number, ++numbers[batch.subject]);
        EXPECT_TRUE(!batch.isEnd || ended.insert(batch.subject).second);
    }
    EXPECT_EQ(ended.size(), 2U);
}

TEST_F(SpoolTest, NumbersAreThoseOfItsPartsAndComeToAnEndWithAnError) {
    const auto last = folder.path() / "spool" / "99999999-x-0001.pcapng";
    openSpool();
    std::ofstream(last) << "somebody's";
    openSpool();
    record(1);
    EXPECT_EQ(readAll(), allSent());
    std::filesystem::rename(partPath, last);
    openSpool();
    EXPECT_THROW(spool->nameNext(), FileError);
}

TEST_F(SpoolTest, IsOneStationsAndOneProgramsAtATime) {
    openSpool();
    EXPECT_THROW(Spool(folder.path() / "spool", "bench", 1U << 30U), UserError);
    record(1);
    spool.reset();
    EXPECT_THROW(Spool(folder.path() / "spool", "other", 1U << 30U), UserError);
}

}  // namespace
}  // namespace station
