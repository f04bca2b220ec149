#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "station/recording/message_reader.h"
#include "station/recording/mf4_groups.h"
#include "station/recording/mf4_input.h"

namespace station {

/// Reads the bus logging of MDF 4 files: ours (`Mf4Recording` has the layout), and those of others
/// in data blocks, compressed ones too, sorted or not, finalised or not. Of an unfinalised one
/// the data go on to the end of the file.
///
/// Read are CAN_DataFrame and LIN_Frame with ID, DataBytes in the record and DataLength or DLC;
/// other events of buses are counted as skipped, and so are frames whose data are kept apart (with
/// a text). Measured signals aren't bus messages and aren't counted.
///
/// Several data groups are merged by time, for a sorted file has the messages of each kind in one
/// of its own. Within a data group the order is the file's.
///
/// A channel is named by the file's table of names (ours), otherwise after its bus and number:
/// "CAN 1".
class Mf4Reader final : public MessageReader {
  public:
    /// `path` is an MDF file. Throws UserError (unreadable).
    explicit Mf4Reader(const std::string& path);
    ~Mf4Reader() override;

    bool next(RecordedMessage& message) override;
    double getProgress() const override;

  private:
    struct Stream;

    void openStream(mf4::Input& input, const mf4::Block& dataGroup, bool isOpenEnd);
    void advance(Stream& stream);
    void end(Stream& stream, std::uint64_t taken, const char* reason = nullptr);
    std::size_t channelOf(BusType bus, std::uint64_t number, const std::string& name);
    void note(const std::string& text);

    const std::string filePath;
    const std::uint64_t fileSize;
    mf4::Budget budget;
    std::uint64_t start = 0;  ///< UTC nanoseconds
    std::vector<std::unique_ptr<Stream>> streams;
    std::unordered_map<std::uint64_t, std::size_t> channelByNumber;
    std::uint64_t bytesRead = 0;
};

/// Null if the file is no MDF; of one before version 4 no message is read. Throws UserError
/// (unreadable).
std::unique_ptr<MessageReader> openMf4(const std::string& path);

}  // namespace station
