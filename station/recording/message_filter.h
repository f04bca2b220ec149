#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "station/recording/recording.h"

namespace station {

/// Which messages are wanted in recordings: by their time, channel and identifier. What isn't asked
/// for lets all pass.
class MessageFilter {
  public:
    /// In UTC, or since the first message that `passes` is asked for.
    struct Moment {
        std::int64_t nanoseconds = 0;
        bool isSinceFirst = false;
    };
    struct Identifiers {
        std::uint32_t first = 0;
        std::uint32_t last = 0;  ///< is one of them
    };
    struct Options {
        std::optional<Moment> from;  ///< messages of that time pass
        std::optional<Moment> to;    ///< messages of that time don't
        std::vector<std::string> channels;
        std::vector<Identifiers> identifiers;

        bool isEmpty() const { return !from && !to && channels.empty() && identifiers.empty(); }
    };

    explicit MessageFilter(Options wanted) : options(std::move(wanted)) {}

    /// The next channel; its number is how many were added before.
    void addChannel(const ChannelDescription& channel);
    /// `record` as the channel's bus has it.
    bool passes(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                std::size_t size);
    /// Names of `Options::channels` that no channel had.
    std::vector<std::string> getUnknownChannels() const;

  private:
    struct Channel {
        ChannelDescription description;
        bool isWanted;
    };

    bool isIdentifierWanted(BusType bus, const void* record, std::size_t size) const;

    const Options options;
    std::vector<Channel> channels;
    bool hasFirst = false;
    std::int64_t from = 0;  ///< nanoseconds UTC; once there was a first message
    std::int64_t to = 0;
};

/// "2023-11-14T22:13:20.5Z", or seconds as "12" or "12.5". Empty for other texts.
std::optional<MessageFilter::Moment> parseMoment(std::string_view text);
/// "0x100", "256", and ranges of both as "0x100-0x1FF". Empty for other texts, and for what no
/// identifier is.
std::optional<MessageFilter::Identifiers> parseIdentifiers(std::string_view text);

}  // namespace station
