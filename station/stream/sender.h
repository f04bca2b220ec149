#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "station/stream/publisher.h"
#include "station/stream/spool.h"

namespace station {

/// Sends what is in a spool by a publisher, on a thread of its own: what this run adds first, and
/// whenever nothing of that waits what earlier ones have left. For ever, with pauses that grow to
/// two seconds while the engine can't be reached. All its operations return at once but `end`.
class Sender {
  public:
    struct State {
        bool isOpen = false;         ///< and has taken something, or there is nothing to take
        std::string failure;         ///< why it isn't; empty: not known yet, or open
        std::uint64_t onTheWay = 0;  ///< messages that the engine has, but hasn't acknowledged
        bool isEnding = false;
        bool isNameTaken = false;  ///< the failure is that another station has the name
    };

    /// On that thread while the publisher is open, every two seconds and at the end.
    using Beat = std::function<void(const State&)>;

    Sender(std::shared_ptr<Spool> source, std::shared_ptr<Publisher> target, Beat beat = {});
    ~Sender();  ///< as `end`
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    State getState() const;
    /// What the user must know since the last call: why the engine can't be reached, and that it
    /// can.
    std::vector<std::string> takeTexts();
    /// Waits for the thread, three seconds at most: one that the system holds up is left to itself,
    /// and soon one that connects. Once more is nothing.
    void end();

  private:
    struct Shared;
    const std::shared_ptr<Shared> shared;
};

}  // namespace station
