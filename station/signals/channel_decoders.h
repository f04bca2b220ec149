#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "station/signals/decoder.h"

namespace station {

/// Which databases hold for which channels. Where several define an identifier, the first of these
/// counts: what was named for the channel, in that order, then what was named for all, then what is
/// the channel's otherwise.
class ChannelDecoders {
  public:
    /// "FILE", for all channels of its bus, or "CHANNEL=FILE". Reads the file. Throws as
    /// `readDatabase`.
    void add(const std::string& text);

    /// Reads the file already. Throws as `readDatabase`.
    void load(const std::string& path) { read(path); }

    bool isEmpty() const { return files.empty(); }
    /// Null: no database is for this channel. `behind` are the files that it has otherwise: from a
    /// setup. Throws UserError for one of another bus that was named for it, and as `readDatabase`.
    std::shared_ptr<const Decoder> find(const ChannelDescription& channel,
                                        const std::vector<std::string>& behind = {});
    /// What the user should know of the files. Those since the last call.
    std::vector<std::string> takeNotices();
    /// Channels that were named and never looked for.
    std::vector<std::string> getUnknownChannels() const;
    /// A text for each file that was named for all channels of its bus, and was for none.
    std::vector<std::string> describeUnused() const;

  private:
    struct File {
        std::string channel;  ///< empty: all
        std::shared_ptr<const Database> database;
        bool isBehind = false;
        bool wasAskedFor = false;
    };

    std::shared_ptr<const Database> read(const std::string& path);

    std::map<std::string, std::shared_ptr<const Database>> databases;  ///< by path
    std::vector<File> files;
    std::map<std::vector<const Database*>, std::shared_ptr<const Decoder>> made;
    std::vector<std::string> notices;
};

}  // namespace station
