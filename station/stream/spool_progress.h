#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include "station/stream/spool_folder.h"

namespace station {

/// How far each measurement of a spool is acknowledged, and which of them is being sent: what the
/// spool's note says.
///
/// What was sent and isn't known to be stored is of the current measurement alone, as long as the
/// note is saved whenever another one becomes it, before that is sent.
class SpoolProgress {
  public:
    using EndsBatch = std::function<bool(const SpoolPlace&)>;
    using Parts = std::map<SpoolKey, std::uint64_t>;  ///< with batches, and so many bytes of them

    /// Takes of a note what can be right of these parts. False: the note isn't of them.
    bool load(const std::vector<SpoolPlace>& note, const Parts& parts, const EndsBatch& endsBatch);
    /// The note: those of which there are parts, and how far each reaches, and the current one,
    /// which is the last. Of a part that isn't among these it says that it should be gone.
    std::vector<SpoolPlace> list(const Parts& parts) const;

    /// The batch that ends there had so many messages.
    void acknowledge(const SpoolPlace& end, std::uint64_t messages);
    /// Up to where that measurement is acknowledged.
    SpoolPlace getPlace(std::uint64_t measurement) const;
    /// Where what isn't acknowledged begins in a part.
    std::uint64_t getStart(const SpoolKey& part) const;
    /// How many messages of a part were acknowledged since this was made.
    std::uint64_t getMessages(const SpoolKey& part) const;

    /// The measurement that is being sent; 0: not known.
    std::uint64_t getCurrent() const { return current; }
    void setCurrent(std::uint64_t measurement) { current = measurement; }

  private:
    struct Acknowledged {
        SpoolPlace place;
        std::uint64_t messages = 0;  ///< of that part
    };

    std::map<std::uint64_t, Acknowledged> measurements;
    std::uint64_t current = 0;
};

}  // namespace station
