#include "station/recording/blf_objects.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace station {
namespace {

constexpr std::size_t mostInBlock = std::size_t{16} << 20U;  // bytes
constexpr std::size_t mostInObject = 64 * 1024;  // of those that are read; a text is the longest
constexpr std::size_t smallestRoom = 256 * 1024;

bool isWithin(std::uint32_t type, blf::Type first, blf::Type last) {
    return type >= static_cast<std::uint32_t>(first) && type <= static_cast<std::uint32_t>(last);
}

bool isError(std::uint32_t type) {
    return isWithin(type, blf::Type::LinErrorFirst, blf::Type::LinErrorLast) ||
           isWithin(type, blf::Type::LinError2First, blf::Type::LinError2Last) ||
           isWithin(type, blf::Type::CanError, blf::Type::CanError) ||
           isWithin(type, blf::Type::CanErrorExtended, blf::Type::CanErrorExtended) ||
           isWithin(type, blf::Type::CanFdError64, blf::Type::CanFdError64);
}

bool isText(std::uint32_t type) {
    return isWithin(type, blf::Type::Text, blf::Type::Text);
}

bool isRead(std::uint32_t type) {
    switch (static_cast<blf::Type>(type)) {
        case blf::Type::Can:
        case blf::Type::Can2:
        case blf::Type::CanFd:
        case blf::Type::CanFd64:
        case blf::Type::Lin:
        case blf::Type::Lin2:
        case blf::Type::Text:
            return true;
        default:
            return false;
    }
}

}  // namespace

BlfObjects::BlfObjects(std::unique_ptr<InputFile> inputFile) : file(std::move(inputFile)) {
    if (::inflateInit(&inflater) != Z_OK) {
        throw std::bad_alloc();
    }
    const Bytes bytes = file->view(0, fileHeader.size());
    if (bytes.size() < fileHeader.size()) {
        stop("it ends within its header");
        return;
    }
    std::copy(bytes.begin(), bytes.end(), fileHeader.begin());
    position = std::max<std::uint64_t>(blf::get32(&fileHeader[blf::file_header::ownSize]),
                                       fileHeader.size());
}

BlfObjects::~BlfObjects() {
    ::inflateEnd(&inflater);
}

bool BlfObjects::stop(const std::string& reason) {
    isOver = true;
    const std::uint64_t from = std::min(presentBlock, file->getSize());
    errorText = fmt::format("{} can't be read to its end: {}; {} bytes are left", file->getPath(),
                            reason, file->getSize() - from);
    return false;
}

BlfObjects::Bytes BlfObjects::next() {
    Bytes object;
    while (!isOver && !isWhole(object)) {
        if (isOver || !readBlock()) {
            return {};
        }
    }
    return object;
}

/// Whether the next object is there as a whole; not so either where reading can't go on.
bool BlfObjects::isWhole(Bytes& object) {
    for (;;) {
        const std::uint64_t passed = std::min<std::uint64_t>(toPassOver, used - at);
        at += passed;
        toPassOver -= passed;
        while (used - at >= blf::object::baseSize && !blf::hasMark(&objects[at], blf::objectMark)) {
            if (++filling > blf::mostFilling) {
                return stop("there is no object where one should be");
            }
            ++at;
        }
        if (used - at < blf::object::baseSize) {
            return false;
        }
        filling = 0;
        const std::size_t size = blf::get32(&objects[at + blf::object::size]);
        if (size < blf::object::baseSize) {
            return stop("an object is shorter than its header");
        }
        if (!passOver(blf::get32(&objects[at + blf::object::type]), size)) {
            object = Bytes(objects).subspan(at, std::min(size, used - at));
            at += object.size() == size ? size : 0;
            return object.size() == size;
        }
    }
}

/// Of objects that aren't read nothing has to be kept until they are whole, however long they are.
bool BlfObjects::passOver(std::uint32_t type, std::size_t size) {
    if (isRead(type) && size <= mostInObject) {
        return false;
    }
    passedOver += isError(type) || (isRead(type) && !isText(type)) ? 1 : 0;
    toPassOver = size;
    return true;
}

/// Reads the next container, or object that is in none, behind the objects that there are.
bool BlfObjects::readBlock() {
    if (!findBlock()) {
        return false;
    }
    const Bytes head = file->view(position, blf::container::content);
    const std::uint32_t size = blf::get32(&head[blf::object::size]);
    const bool isContainer =
        blf::get32(&head[blf::object::type]) == static_cast<std::uint32_t>(blf::Type::Container);
    if (size < (isContainer ? blf::container::content : blf::object::baseSize)) {
        return stop("an object is shorter than its header");
    }
    position += size;
    if (!isContainer && size > mostInObject) {
        return true;
    }
    if (size > mostInBlock) {
        return stop("a container has more than 16 MiB");
    }
    const Bytes block = file->view(presentBlock, size);
    if (block.size() < size) {
        return stop(file->getErrorText().empty() ? "its end is cut off" : file->getErrorText());
    }
    if (!isContainer) {
        return append(block);
    }
    const Bytes content = block.subspan(blf::container::content);
    switch (blf::get16(&block[blf::container::method])) {
        case blf::container::stored:
            return append(content);
        case blf::container::zlib:
            return inflateInto(content);
        default:
            return stop("a container is compressed in a way that isn't known");
    }
}

/// Goes over filling. False at the end.
bool BlfObjects::findBlock() {
    presentBlock = position;
    const Bytes bytes = file->view(position, blf::mostFilling + blf::container::content);
    for (std::size_t i = 0; i + blf::container::content <= bytes.size(); ++i) {
        if (blf::hasMark(&bytes[i], blf::objectMark)) {
            position += i;
            presentBlock = position;
            return true;
        }
    }
    if (bytes.size() < blf::mostFilling + blf::container::content) {
        return endFile(bytes);
    }
    return stop("there is no object where one should be");
}

bool BlfObjects::endFile(Bytes rest) {
    const auto isFilling = [](Bytes bytes) {
        return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0; });
    };
    if (!file->getErrorText().empty()) {
        return stop(file->getErrorText());
    }
    if (!isFilling(rest) || position > file->getSize()) {
        return stop("its end is cut off");
    }
    if (toPassOver != 0 || !isFilling(Bytes(objects.data() + at, used - at))) {
        return stop("its last object is cut off");
    }
    const std::uint64_t statedSize = blf::get64(&fileHeader[blf::file_header::fileSize]);
    if (statedSize > file->getSize()) {
        return stop(
            fmt::format("it had {} bytes once, and has {} now", statedSize, file->getSize()));
    }
    isOver = true;
    return false;
}

/// For more behind the objects that are still to be read.
void BlfObjects::makeRoom() {
    if (at != 0) {
        std::memmove(objects.data(), objects.data() + at, used - at);
        used -= std::exchange(at, 0);
    }
}

bool BlfObjects::append(Bytes bytes) {
    makeRoom();
    objects.resize(std::max(objects.size(), used + bytes.size()));
    std::copy(bytes.begin(), bytes.end(), objects.begin() + static_cast<std::ptrdiff_t>(used));
    used += bytes.size();
    return true;
}

bool BlfObjects::inflateInto(Bytes compressed) {
    makeRoom();
    const std::size_t front = used;
    ::inflateReset(&inflater);
    inflater.next_in = const_cast<Bytef*>(compressed.data());  // of a C library that only reads it
    inflater.avail_in = static_cast<uInt>(compressed.size());
    int result = Z_OK;
    while (result == Z_OK) {
        if (used - front > mostInBlock) {
            return stop("a container has more than 16 MiB");
        }
        if (objects.size() - used < smallestRoom) {
            objects.resize(2 * objects.size() + smallestRoom);
        }
        const std::size_t room = std::min(objects.size() - used, mostInBlock + 1 - (used - front));
        inflater.next_out = objects.data() + used;
        inflater.avail_out = static_cast<uInt>(room);
        result = ::inflate(&inflater, Z_NO_FLUSH);
        used += room - inflater.avail_out;
    }
    if (result != Z_STREAM_END) {
        used = front;
        return stop("a container is damaged");
    }
    return true;
}

}  // namespace station
