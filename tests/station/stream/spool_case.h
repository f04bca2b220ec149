#pragma once

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "host/bus_record.h"
#include "station/recording/pcapng_reader.h"
#include "station/stream/spool_part.h"
#include "tests/support/temporary_folder.h"

namespace station {

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

}  // namespace station
