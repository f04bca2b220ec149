#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "core/descriptor.h"
#include "station/fleet/batch_source.h"

namespace station {

/// The file that a session grows in: its batches in the order in which they came, as they came.
///
/// It is a .pcapng that any reader of the format opens while it grows. In front of each batch is an
/// empty section whose comment says what the batch is: so the file alone says what is in it, and
/// only whole batches count. One that was torn when the process or the machine failed is cut off
/// when the file is opened next.
///
/// The file is open only from a first `append` to the next `sync`, so that a thousand sessions take
/// no more descriptors than are written at once.
class BatchJournal {
  public:
    struct Entry {
        std::string subject;
        std::uint64_t number = 0;
        std::uint64_t messages = 0;
        std::uint64_t offset = 0;  ///< of the payload
        std::uint64_t bytes = 0;
        std::uint64_t sequence = 0;  ///< in the stream
        std::uint32_t checksum = 0;  ///< of the payload
        bool isEnd = false;
    };
    using Visitor = std::function<void(const Entry&)>;

    /// Creates the file, or gives `visit` what is in it. Throws FileError.
    BatchJournal(std::string path, const Visitor& visit);

    /// False if the disk doesn't take it: then nothing of it is in the file, and `getErrorText`
    /// says why.
    bool append(const StoredBatch& batch);
    /// Waits until the disk has it all. If that fails the file is as it was after the last time
    /// that it didn't.
    bool sync();
    /// In place of `sync`, where the disk has it by another way.
    void markSynced();

    const std::string& getPath() const { return path; }
    const std::string& getErrorText() const { return errorText; }
    /// What failed is that the disk has no room.
    bool isFull() const { return full; }
    /// Of a torn batch, when it was opened.
    std::uint64_t getCutBytes() const { return cutBytes; }

    /// All whole batches of a file.
    static void read(const std::string& path, const Visitor& visit);

  private:
    bool open();
    bool fail(int errorNumber);
    bool cutTo(std::uint64_t size);

    const std::string path;
    Descriptor file;
    std::uint64_t end = 0;     ///< of what was written
    std::uint64_t synced = 0;  ///< of what the disk has
    std::uint64_t cutBytes = 0;
    std::string errorText;
    bool full = false;
};

/// As it is in the journal.
std::uint32_t checksumOf(std::span<const std::uint8_t> bytes);

/// Whether these are whole pcapng blocks of one byte order, the first of them a section's.
bool isPcapng(std::span<const std::uint8_t> bytes);

}  // namespace station
