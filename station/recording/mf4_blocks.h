#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "station/recording/append_file.h"
#include "station/recording/mf4_format.h"

/// What the writers of MDF 4 files share: blocks, each behind those that it links to.
namespace station::mf4 {

constexpr char xmlNamespace[] = "http://www.asam.net/mdf/v4";
constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;

// Places of fields behind a block's start.
constexpr std::size_t lengthAt = 8;
constexpr std::size_t headerCommentAt = blockHeaderSize + 5 * linkSize;
constexpr std::size_t headerStartAt = blockHeaderSize + 6 * linkSize;
constexpr std::size_t historyTimeAt = blockHeaderSize + 2 * linkSize;
constexpr std::size_t groupLinkAt = blockHeaderSize + linkSize;
constexpr std::size_t dataLinkAt = blockHeaderSize + 2 * linkSize;

struct Member {
    const char* name;
    std::uint32_t at;  ///< byte in the record behind its identifier
    std::uint32_t bits;
    DataType type = unsignedLittle;
};

/// The fields of a block behind its links.
class Fields {
  public:
    template <typename T>
    Fields& put(T value) {
        bytes.resize(bytes.size() + sizeof(T));
        store(bytes.data() + bytes.size() - sizeof(T), value);
        return *this;
    }
    Fields& zeros(std::size_t count) {
        bytes.resize(bytes.size() + count);
        return *this;
    }
    std::vector<std::uint8_t> bytes;
};

/// A file's blocks from `fileOffset` on, each behind those that it links to.
class Blocks {
  public:
    explicit Blocks(std::uint64_t fileOffset) : offset(fileOffset) {}

    /// Returns the block's offset in the file. Its length is made a multiple of 8.
    std::uint64_t add(const char* id, std::initializer_list<std::uint64_t> links,
                      const Fields& fields);
    std::uint64_t addText(const char* id, const std::string& text);
    void setLink(std::uint64_t place, std::uint64_t target) {
        store(&bytes[place - offset], target);
    }

    std::vector<std::uint8_t> bytes;

  private:
    const std::uint64_t offset;
};

std::uint64_t addChannelBlock(Blocks& blocks, std::uint64_t next, std::uint64_t composition,
                              const std::string& name, ChannelType type, const Member& member,
                              std::uint32_t flags, std::uint64_t conversion = 0,
                              std::uint64_t unit = 0, std::uint64_t comment = 0);
/// The time of each record, at its begin: nanoseconds since the file's start.
std::uint64_t addMaster(Blocks& blocks, std::uint64_t next);
/// The source of a group's records.
std::uint64_t addSource(Blocks& blocks, const std::string& name, std::uint8_t bus);
/// Header and history. Returns the place of the latter.
std::uint64_t addHeader(Blocks& blocks, const std::string& comment);

struct DataPlaces {
    std::uint64_t group;
    std::uint64_t data;
};
/// The data group with its groups of channels, and the data as the last block. Linked from the
/// header.
DataPlaces addData(Blocks& blocks, std::uint64_t firstGroup, std::uint8_t recordIdSize);

std::vector<std::uint8_t> identification(bool isFinalized);
/// The text within XML. Characters that XML can't have become blanks.
std::string escaped(const std::string& text);

/// Bytes that are no record, of any size.
void appendPieces(AppendFile& file, const std::vector<std::uint8_t>& bytes);
void patchNumber(AppendFile& file, std::uint64_t offset, std::uint64_t value);
/// The file starts with the second of that time: puts it into header and history, and returns it.
std::int64_t patchStart(AppendFile& file, std::uint64_t history, std::int64_t utcNanoseconds);

}  // namespace station::mf4
