#pragma once

#include <memory>
#include <string>

namespace station {

/// Writes texts for the user on a thread of its own, in order. A terminal that is stopped, a pipe
/// that nobody reads, a link that is dead: none of them holds up who writes here.
///
/// What waits is bounded. A text beyond that isn't shown, and once there is room again a text
/// says how many weren't.
class TextWriter {
  public:
    TextWriter();
    /// As `finish`. A thread that still waits for its reader then is left to itself.
    ~TextWriter();
    TextWriter(const TextWriter&) = delete;
    TextWriter& operator=(const TextWriter&) = delete;

    /// Never waits.
    void write(int descriptor, std::string text);
    /// Whether anything is still to be written.
    bool isBusy() const;
    /// Waits until all is written, for a fifth of a second at most while nothing moves.
    void finish();

  private:
    struct Shared;
    const std::shared_ptr<Shared> shared;
};

}  // namespace station
