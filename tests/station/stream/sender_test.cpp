#include "station/stream/sender.h"

#include <fmt/format.h>

#include <thread>

#include "host/bus_record.h"
#include "station/errors.h"
#include "station/recording/pcapng_reader.h"
#include "station/stream/spool_part.h"
#include "tests/station/stream/kafka_publisher.h"
#include "tests/support/temporary_folder.h"

namespace station {
namespace {

using namespace std::chrono_literals;

/// A spool, and what a measurement of one channel writes into it: messages numbered in their
/// identifiers.
class SpoolTest : public ::testing::Test {
  protected:
    void openSpool(std::uint64_t limit = 1U << 30U) {
        spool.reset();
        spool = std::make_shared<Spool>(spoolFolder, "bench", limit);
    }
    /// Batches of a hundred messages each, in one part.
    void record(int batches) {
        const auto session = makeSession();
        recordPart(spool->nameNext(), 1, session, batches);
    }
    std::shared_ptr<SpoolSession> makeSession() const {
        return std::make_shared<SpoolSession>(SpoolSession{.identifier = "s" + std::to_string(sent),
                                                           .stationToken = "bench",
                                                           .batchBytes = 1U << 16U});
    }
    void recordPart(const std::string& name, int number,
                    const std::shared_ptr<SpoolSession>& session, int batches) {
        partPath = fmt::format("{}-s-{:04}.pcapng", name.substr(0, name.rfind('.')), number);
        SpoolPart part(partPath, spool, session);
        part.addChannel({"C", BusType::Can});
        for (int batch = 0; batch < batches; ++batch) {
            for (int i = 0; i < 100; ++i) {
                CanFrame frame;
                frame.id = sent++;
                frame.length = 0;
                part.write(0, frame.id, &frame, sizeof frame);
            }
            part.flush();
        }
    }
    /// The identifiers in a file, in its order.
    std::vector<std::uint32_t> read(const std::vector<std::uint8_t>& bytes) const {
        const std::string path = folder.path() / "read.pcapng";
        std::ofstream(path).write(reinterpret_cast<const char*>(bytes.data()),
                                  static_cast<std::streamsize>(bytes.size()));
        PcapngReader reader(path);
        std::vector<std::uint32_t> found;
        for (RecordedMessage message; reader.next(message);) {
            std::memcpy(&found.emplace_back(), message.record.data(), sizeof found.back());
        }
        return found;
    }
    /// The identifiers of what isn't acknowledged.
    std::vector<std::uint32_t> readAll() {
        std::vector<std::uint32_t> all;
        while (spool->countNext()) {
        }
        for (const auto lane : {Spool::Lane::Earlier, Spool::Lane::Live}) {
            Spool::Reader reader = spool->startReading(lane);
            for (Batch batch; spool->read(reader, batch);) {
                std::ranges::copy(read(batch.payload), std::back_inserter(all));
            }
        }
        return all;
    }
    /// Where the first batch ends.
    std::uint64_t firstEnd() {
        openSpool();
        Spool::Reader reader = spool->startReading(Spool::Lane::Earlier);
        Batch batch;
        return spool->read(reader, batch) ? reader.getPlace().offset : 0;
    }
    std::vector<std::uint32_t> allSent() const {
        std::vector<std::uint32_t> all(sent);
        std::iota(all.begin(), all.end(), 0U);
        return all;
    }

    const TemporaryFolder folder;
    std::filesystem::path spoolFolder = folder.path() / "spool";
    std::shared_ptr<Spool> spool;
    std::string partPath;
    std::uint32_t sent = 0;
};

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
         {std::tuple{'x' + whole.substr(1), 100U, 1U},
          {whole + std::string(500, '\0'), 200U, 1U},
          {whole + 'x' + second.substr(1), 200U, 1U},
          {whole + second.substr(0, 99), 200U, 0U},
          {whole + second.substr(0, second.size() - 1), 200U, 0U}}) {
        std::ofstream(partPath, std::ios::trunc) << bytes;
        openSpool();
        EXPECT_EQ(readAll().size(), found);
        EXPECT_EQ(spool->getCounts().lost, lost) << bytes.size();
    }
    std::filesystem::remove(partPath);
    record(1);
    EXPECT_EQ(readAll().size(), 100U);
    EXPECT_EQ(spool->getCounts().lost, 200U);
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

TEST_F(SpoolTest, WhatIsDeletedBetweenRunsIsToldOnceAndWhatTheStationRemovedIsNot) {
    const auto measure = [&](int parts) {
        const auto session = makeSession();
        const std::string name = spool->nameNext();
        for (int part = 1; part <= parts; ++part) {
            recordPart(name, part, session, part == 3 ? 0 : 2);  // a disk that was full for a while
        }
    };
    const auto acknowledge = [&](int batches) {
        Spool::Reader reader = spool->startReading(Spool::Lane::Earlier);
        for (Batch batch; batches-- > 0 && spool->read(reader, batch);) {
            spool->acknowledge(reader.getPlace(), batch.messages);
        }
        spool->saveNote();
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
    measure(7);
    expect(0, "");
    acknowledge(5);  // parts 1 and 2, and one of the fourth's
    expect(0, "");
    remove("00000001-s-0004.pcapng");
    expect(1, "00000001, part 4");
    expect(0, "");
    remove("00000001-s-0006.pcapng");
    measure(1);
    expect(1, "00000001, part 6");
    acknowledge(4);
    expect(0, "");
    openSpool(1);  // which has no room for both
    measure(2);
    expect(0, "");
    remove("00000003-s-0002.pcapng");
    expect(1, "00000003, part 2 and all behind it");
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

/// Takes two batches at a time, and knows of what it has the last batch alone.
class ForgetfulPublisher final : public Publisher {
  public:
    /// After each that is stored it asks whether the sender goes on; else that gets no answer.
    ForgetfulPublisher(std::vector<Batch>& batches, std::function<bool()> askWhether)
        : stored(batches), goesOn(std::move(askWhether)) {}
    void open() override { last = stored.empty() ? Batch() : stored.back(); }
    bool publish(const Batch& batch) override {
        if (onTheWay == 2) {
            return false;
        }
        ++given;
        if (batch.session != last.session || batch.number > last.number) {
            last = {};
            stored.push_back(batch);
            ++onTheWay;
            isAnswered = goesOn();
        }
        return true;
    }
    std::uint64_t getAcknowledged(std::chrono::milliseconds) override {
        onTheWay = isAnswered ? 0 : onTheWay;
        return given - onTheWay;
    }
    void close() override {}

    std::atomic<bool> isAnswered = true;

  private:
    std::vector<Batch>& stored;
    const std::function<bool()> goesOn;
    Batch last;
    std::uint64_t given = 0;
    std::uint64_t onTheWay = 0;
};

TEST_F(SpoolTest, LiveBatchesGoBeforeABacklogAndEachIsSentOnceInOrderOverKills) {
    constexpr std::size_t runs = 20;
    std::vector<Batch> stored;
    openSpool();
    record(100);
    for (std::size_t run = 1; run <= runs; ++run) {
        openSpool();
        EXPECT_EQ(spool->takeTexts(), std::vector<std::string>());
        const std::size_t before = stored.size();
        const std::string live = "s" + std::to_string(sent);
        record(2);
        const auto left = folder.path() / std::to_string(run);
        const auto publisher = std::make_shared<ForgetfulPublisher>(stored, [&] {
            const std::size_t count = stored.size() - before;
            if (count == 3) {
                record(1);
            }
            if (run == runs || count < 3 + run % 5) {
                return true;
            }
            std::filesystem::copy(spoolFolder, left);  // as a kill leaves it
            return false;
        });
        Sender sender(spool, publisher);
        for (int rest = 2000;
             rest-- > 0 && publisher->isAnswered && spool->getCounts().bytes != 0;) {
            std::this_thread::sleep_for(5ms);
        }
        sender.end();
        EXPECT_TRUE(
            std::ranges::count(std::span(stored).subspan(before, 3), live, &Batch::session));
        spoolFolder = left;
    }
    std::map<std::string, std::vector<std::uint64_t>> numbers;
    std::uint64_t messages = 0;
    for (const Batch& batch : stored) {
        messages += batch.messages;
        std::vector<std::uint64_t>& there = numbers[batch.session];
        there.push_back(batch.number);
        EXPECT_EQ(batch.number, there.size()) << batch.session;
    }
    EXPECT_EQ(messages, sent);
    EXPECT_TRUE(stored.front().hasOthers);
    EXPECT_FALSE(stored.back().hasOthers);
}

/// Takes all, slowly, and says nothing, as where it is to be found out how much is stored.
class SilentPublisher final : public Publisher {
  public:
    void open() override {}
    bool publish(const Batch&) override {
        std::this_thread::sleep_for(50ms);
        return ++given != 0;
    }
    std::uint64_t getAcknowledged(std::chrono::milliseconds) override { return 0; }
    void close() override {}
    std::atomic<int> given = 0;
};

TEST_F(SpoolTest, AStopIsHeardAndTheHeartBeatsWhileALargeSpoolIsGoneThrough) {
    constexpr int most = 100;
    openSpool();
    record(most);
    const auto publisher = std::make_shared<SilentPublisher>();
    std::atomic<int> beatAt = -1;
    Sender sender(spool, publisher, [&](const Sender::State& state) {
        beatAt = state.isEnding ? beatAt.load() : publisher->given.load();
    });
    for (int rest = 2000; rest-- > 0 && beatAt < 0;) {
        std::this_thread::sleep_for(5ms);
    }
    sender.end();
    EXPECT_LT(beatAt, most);
    EXPECT_LT(publisher->given, most);
}

#ifndef CMP_THREAD_SANITIZER  // that of clang 14 ends in threads of C11, which librdkafka has
/// Brokers of Kafka within this process.
class KafkaTest : public SpoolTest {
  protected:
    KafkaTest()
        : owner(rd_kafka_new(RD_KAFKA_PRODUCER, rd_kafka_conf_new(), nullptr, 0)),
          cluster(rd_kafka_mock_cluster_new(owner, 3)) {
        rd_kafka_mock_topic_create(cluster, "cmp", 4, 3);
    }
    ~KafkaTest() override {
        rd_kafka_mock_cluster_destroy(cluster);
        rd_kafka_destroy(owner);
    }
    std::string servers() const { return rd_kafka_mock_cluster_bootstraps(cluster); }

    struct Stored {
        std::vector<std::string> identifiers;
        std::vector<std::uint8_t> payloads;
        std::set<std::pair<int, std::string>> partitionsAndKeys;
    };
    /// So many from all partitions, and what comes for a moment behind them.
    Stored consume(std::size_t count) const {
        rd_kafka_conf_t* const settings = rd_kafka_conf_new();
        rd_kafka_conf_set(settings, "bootstrap.servers", servers().c_str(), nullptr, 0);
        rd_kafka_conf_set(settings, "group.id", "test", nullptr, 0);
        rd_kafka_conf_set(settings, "auto.offset.reset", "earliest", nullptr, 0);
        rd_kafka_t* const consumer = rd_kafka_new(RD_KAFKA_CONSUMER, settings, nullptr, 0);
        rd_kafka_topic_partition_list_t* const all = rd_kafka_topic_partition_list_new(4);
        for (int partition = 0; partition < 4; ++partition) {
            rd_kafka_topic_partition_list_add(all, "cmp", partition)->offset =
                RD_KAFKA_OFFSET_BEGINNING;
        }
        rd_kafka_assign(consumer, all);
        rd_kafka_topic_partition_list_destroy(all);
        Stored stored;
        for (int rest = 300; rest-- > 0;) {
            rd_kafka_message_t* const message = rd_kafka_consumer_poll(consumer, 100);
            if (message != nullptr && message->err == RD_KAFKA_RESP_ERR_NO_ERROR) {
                rd_kafka_headers_t* headers = nullptr;
                const void* value = nullptr;
                std::size_t size = 0;
                rd_kafka_message_headers(message, &headers);
                rd_kafka_header_get_last(headers, header::identifier, &value, &size);
                stored.identifiers.emplace_back(static_cast<const char*>(value), size);
                const auto* const bytes = static_cast<const std::uint8_t*>(message->payload);
                stored.payloads.insert(stored.payloads.end(), bytes, bytes + message->len);
                stored.partitionsAndKeys.emplace(
                    message->partition,
                    std::string(static_cast<const char*>(message->key), message->key_len));
            }
            if (message != nullptr) {
                rd_kafka_message_destroy(message);
            }
            rest = stored.identifiers.size() >= count ? std::min(rest, 10) : rest;
        }
        rd_kafka_consumer_close(consumer);
        rd_kafka_destroy(consumer);
        return stored;
    }

    rd_kafka_t* const owner;
    rd_kafka_mock_cluster_t* const cluster;
};

TEST_F(KafkaTest, AnotherEngineGetsEachBatchOnceAndInOrderBehindTheSameSeam) {
    constexpr int batches = 60;
    openSpool();
    Sender sender(spool, std::make_shared<KafkaPublisher>(servers(), "cmp", "bench"));
    record(batches / 2);
    const auto waitForAll = [&] {
        for (int rest = 600; rest-- > 0 && spool->getCounts().messages != 0;) {
            std::this_thread::sleep_for(100ms);
        }
    };
    waitForAll();
    // Answers get lost, and brokers go: the producer sends again.
    rd_kafka_mock_push_request_errors(
        cluster, 0 /* Produce */, 3, RD_KAFKA_RESP_ERR_REQUEST_TIMED_OUT,
        RD_KAFKA_RESP_ERR_NOT_LEADER_FOR_PARTITION, RD_KAFKA_RESP_ERR__TRANSPORT);
    record(batches / 2);
    waitForAll();
    sender.end();
    EXPECT_EQ(spool->getCounts().acknowledged, sent);
    EXPECT_FALSE(std::filesystem::exists(partPath));
    const Stored stored = consume(batches);
    EXPECT_EQ(stored.identifiers.size(), std::size_t{batches});
    EXPECT_EQ(std::set(stored.identifiers.begin(), stored.identifiers.end()).size(),
              std::size_t{batches});
    EXPECT_EQ(stored.partitionsAndKeys.size(), 1U);
    EXPECT_EQ(stored.partitionsAndKeys.begin()->second, "bench");
    EXPECT_EQ(read(stored.payloads), allSent());
}
#endif

}  // namespace
}  // namespace station
