#include "station/stream/sender.h"

#include <thread>

#include "tests/station/stream/kafka_publisher.h"
#include "tests/station/stream/spool_case.h"

namespace station {
namespace {

using namespace std::chrono_literals;

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
