#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "station/recording/csv_text.h"
#include "station/recording/recording.h"
#include "station/signals/channel_decoders.h"

namespace station {

/// What became of messages whose signals were to be written.
struct SignalCounts {
    std::uint64_t decoded = 0;
    std::uint64_t undefined = 0;   ///< messages that no database of their channel defines
    std::uint64_t noDatabase = 0;  ///< messages of channels for which there is none
    std::uint64_t empty = 0;       ///< messages that were defined and too short for any signal
};

/// A recording of the signals in messages, one record a message. A message without any signal is
/// counted and is no record.
class SignalRecording : public Recording {
  public:
    bool accepts(BusType bus) const override { return bus != BusType::Ethernet; }
    /// Throws as `ChannelDecoders::find`.
    std::size_t addChannel(const ChannelDescription& channel) override;
    void write(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
               std::size_t size) override;

  protected:
    struct Channel {
        ChannelDescription description;
        std::shared_ptr<const Decoder> decoder;  ///< null: no database
    };

    /// Neither is owned; both outlive this.
    SignalRecording(const std::string& path, ChannelDecoders& channelDecoders,
                    SignalCounts& signalCounts)
        : Recording(path, true), decoders(channelDecoders), counts(signalCounts) {}

    virtual void writeSignals(std::size_t channel, std::int64_t utcNanoseconds,
                              const Decoder::Message& message,
                              std::span<const DecodedSignal> signals) = 0;
    /// One record, of any size.
    void writeRecord(std::size_t channel, std::span<const std::uint8_t> bytes);

    std::vector<Channel> channels;

  private:
    ChannelDecoders& decoders;
    SignalCounts& counts;
    std::vector<DecodedSignal> decoded;
};

/// As a table of text, one line a signal:
///
///     time,channel,message,signal,value,unit,text
///     2023-11-14T22:13:20.123456789Z,Front,Engine,Speed,2490,1/min,
///     2023-11-14T22:13:20.123456789Z,Front,Engine,Gear,1,,Reverse
///
/// Values are written so that reading them gives the same number; whole numbers that are signals by
/// themselves (factor 1, offset 0) with all their digits.
class SignalCsvRecording final : public SignalRecording {
  public:
    SignalCsvRecording(const std::string& path, ChannelDecoders& channelDecoders,
                       SignalCounts& signalCounts);
    const char* getFormatName() const override { return "CSV of signals"; }

  protected:
    void writeSignals(std::size_t channel, std::int64_t utcNanoseconds,
                      const Decoder::Message& message,
                      std::span<const DecodedSignal> signals) override;

  private:
    /// ",Front,Engine,Speed," of each signal of a message.
    std::vector<std::string>& findNames(std::size_t channel, const Decoder::Message& message);

    CsvTime time;
    std::vector<std::vector<std::vector<std::string>>> names;  ///< by channel, message and signal
    std::vector<std::uint8_t> lines;
};

/// As MDF 4 measured values: a group of channels for each message of a bus channel, with its time
/// and a column of 64-bit floats for each signal. A signal that isn't in a message is NaN there.
/// Units are those of the channels, and what values mean is in the channels' comments.
///
/// The groups are written at the end, behind the records: without `close` the file can't be read,
/// so its place is another one until then.
class SignalMf4Recording final : public SignalRecording {
  public:
    SignalMf4Recording(const std::string& path, ChannelDecoders& channelDecoders,
                       SignalCounts& signalCounts);
    const char* getFormatName() const override { return "MDF 4 of signals"; }

  protected:
    void writeSignals(std::size_t channel, std::int64_t utcNanoseconds,
                      const Decoder::Message& message,
                      std::span<const DecodedSignal> signals) override;
    void complete() override;

  private:
    struct Group {
        std::size_t channel;
        const MessageDefinition* message;
        std::uint64_t records = 0;
    };

    std::size_t findGroup(std::size_t channel, const Decoder::Message& message);

    std::vector<Group> groups;                          ///< their records have their place, from 1
    std::vector<std::vector<std::size_t>> groupPlaces;  ///< by channel and message; 0: none yet
    std::vector<std::uint8_t> bytes;                    ///< of a record
    std::optional<std::int64_t> start;  ///< UTC nanoseconds; once there is a message
    std::uint64_t historyBlock = 0;
    std::uint64_t dataGroup = 0;
    std::uint64_t dataBlock = 0;
};

/// By the ending of `name`: .csv, also for standard output, or .mf4. It is written to `path`, over
/// what is there. Throws as `openRecording`.
std::unique_ptr<Recording> openSignalRecording(const std::string& name, const std::string& path,
                                               ChannelDecoders& decoders, SignalCounts& counts);

}  // namespace station
