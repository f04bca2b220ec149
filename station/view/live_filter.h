#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace station {

/// Which messages the user wants to see: all of them by default.
///
/// Words with blanks or commas between them:
///
///     100, 0x100      an identifier, in hexadecimal
///     100-1FF         identifiers from the first to the last
///     123:7F0         identifiers that are 0x123 in the bits of the mask 0x7F0
///     engine          channels with that in their names, in any case; where no channel has it,
///                     messages with that in their names; in quotes what looks like a number
///     !100            not that; every word may be excluded
///
/// A message passes that has one of the identifiers or message names, if there are any, and whose
/// channel has one of the names, if there are any, and that nothing excludes.
class LiveFilter {
  public:
    struct Identity {
        std::size_t channel = 0;
        std::uint32_t id = 0;
        bool isExtended = false;
    };
    /// The name of a message, empty for none.
    using NameOf = std::function<std::string(const Identity&)>;

    LiveFilter() = default;
    /// Throws `UserError` for a text that is no filter. `channels`: the names of all, by position.
    static LiveFilter parse(std::string_view text, const std::vector<std::string>& channels,
                            NameOf nameOf = {});

    bool passes(const Identity& message) const;
    /// Whether a message of that channel may pass.
    bool passesChannel(std::size_t channel) const;
    bool passesAll() const { return terms.empty(); }

  private:
    struct Term {
        enum class Kind { Range, Mask, Channel, Message };
        Kind kind = Kind::Range;
        bool excludes = false;
        std::uint32_t first = 0;  ///< of a range; of a mask: what the bits are
        std::uint32_t last = 0;   ///< of a range; of a mask: the bits
        std::string name = {};    ///< in lower case
        std::vector<bool> channels = {};
    };

    static Term readTerm(std::string_view word, const std::vector<std::string>& channels);
    bool judge(const Identity& message, bool byChannelAlone) const;
    bool matches(const Term& term, const Identity& message) const;

    std::vector<Term> terms;
    NameOf messageName;
};

}  // namespace station
