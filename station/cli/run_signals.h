#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "station/session/measurement_recorder.h"
#include "station/session/session.h"
#include "station/signals/channel_decoders.h"
#include "station/signals/signal_watch.h"

namespace station {

/// The signals of a measurement: by the databases that its setup names for channels, and by those
/// of the command line, which count first.
class RunSignals final : public MessageListener {
  public:
    /// Reads the databases of the command line. Throws as `readDatabase`.
    explicit RunSignals(const std::vector<std::string>& databases);

    /// Reads those that the setup file names for the channels in use. Throws as `readDatabase`.
    void readSetup(const std::string& setup, const std::vector<Module>& modules);
    /// For the measurement's channels. Throws UserError for a channel that was named and isn't
    /// measured, or a database of another bus.
    void open(const Summary& measured);
    /// Whether any channel has a database.
    bool isWanted() const { return watch != nullptr; }
    void addTo(Summary& summary);

    void onMessage(std::size_t channel, std::int64_t, const void* record,
                   std::size_t size) override {
        watch->note(channel, record, size);
    }

  private:
    ChannelDecoders decoders;
    std::optional<std::string> setupFile;  ///< if its databases count
    std::unique_ptr<SignalWatch> watch;    ///< null: no database
};

}  // namespace station
