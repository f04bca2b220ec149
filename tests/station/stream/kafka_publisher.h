#pragma once

#include <librdkafka/rdkafka.h>
// Behind that.
#include <librdkafka/rdkafka_mock.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <string>

#include "station/nats/stream_names.h"
#include "station/stream/publisher.h"

namespace station {

/// Publishes into a topic of Kafka: by an idempotent producer, which keeps the order with several
/// batches on their way; the station is the key, so that all of it is in one partition.
class KafkaPublisher final : public Publisher {
  public:
    KafkaPublisher(std::string brokers, std::string topicName, std::string stationToken)
        : servers(std::move(brokers)), topic(std::move(topicName)), key(std::move(stationToken)) {}
    ~KafkaPublisher() override { close(); }

    void open() override {
        close();
        rd_kafka_conf_t* const settings = rd_kafka_conf_new();
        std::string error(512, '\0');
        for (const auto& [name, value] :
             {std::pair<const char*, std::string>{"bootstrap.servers", servers},
              {"enable.idempotence", "true"},
              {"message.timeout.ms", "5000"},
              {"linger.ms", "0"}}) {
            rd_kafka_conf_set(settings, name, value.c_str(), error.data(), error.size());
        }
        rd_kafka_conf_set_dr_msg_cb(settings,
                                    [](rd_kafka_t*, const rd_kafka_message_t* message, void* self) {
                                        static_cast<KafkaPublisher*>(self)->takeAnswer(*message);
                                    });
        rd_kafka_conf_set_opaque(settings, this);
        producer = rd_kafka_new(RD_KAFKA_PRODUCER, settings, error.data(), error.size());
        if (producer == nullptr) {
            throw PublishError(error.c_str());
        }
    }
    bool publish(const Batch& batch) override {
        constexpr std::size_t mostOnTheWay = 8;
        if (onTheWay.size() >= mostOnTheWay) {
            return false;
        }
        rd_kafka_headers_t* const headers = rd_kafka_headers_new(3);
        for (const auto& [name, value] : {std::pair{header::identifier, batch.getIdentifier()},
                                          {header::session, batch.session},
                                          {header::batch, std::to_string(batch.number)}}) {
            rd_kafka_header_add(headers, name, -1, value.data(),
                                static_cast<ssize_t>(value.size()));
        }
        onTheWay.push_back(std::make_unique<bool>(false));
        const auto failure = rd_kafka_producev(
            producer, RD_KAFKA_V_TOPIC(topic.c_str()), RD_KAFKA_V_KEY(key.data(), key.size()),
            RD_KAFKA_V_VALUE(const_cast<std::uint8_t*>(batch.payload.data()), batch.payload.size()),
            RD_KAFKA_V_MSGFLAGS(RD_KAFKA_MSG_F_COPY), RD_KAFKA_V_HEADERS(headers),
            RD_KAFKA_V_OPAQUE(onTheWay.back().get()), RD_KAFKA_V_END);
        if (failure != RD_KAFKA_RESP_ERR_NO_ERROR) {
            rd_kafka_headers_destroy(headers);
            throw PublishError(rd_kafka_err2str(failure));
        }
        return true;
    }
    std::uint64_t getAcknowledged(std::chrono::milliseconds patience) override {
        rd_kafka_poll(producer, static_cast<int>(patience.count()));
        if (!refusal.empty()) {
            throw PublishError(refusal);
        }
        for (; !onTheWay.empty() && *onTheWay.front(); ++acknowledged) {
            onTheWay.pop_front();
        }
        return acknowledged;
    }
    void close() override {
        if (producer != nullptr) {
            rd_kafka_purge(producer, RD_KAFKA_PURGE_F_QUEUE | RD_KAFKA_PURGE_F_INFLIGHT);
            rd_kafka_poll(producer, 0);
            rd_kafka_destroy(producer);
        }
        producer = nullptr;
        onTheWay.clear();
        refusal.clear();
        acknowledged = 0;
    }

  private:
    void takeAnswer(const rd_kafka_message_t& message) {
        if (message.err == RD_KAFKA_RESP_ERR_NO_ERROR) {
            *static_cast<bool*>(message._private) = true;
        } else {
            refusal = rd_kafka_err2str(message.err);
        }
    }

    const std::string servers;
    const std::string topic;
    const std::string key;
    rd_kafka_t* producer = nullptr;
    std::deque<std::unique_ptr<bool>> onTheWay;  ///< whether each is stored
    std::uint64_t acknowledged = 0;
    std::string refusal;
};

}  // namespace station
