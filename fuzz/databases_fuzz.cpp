#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/memory_file.h"
#include "fuzz/require.h"
#include "station/errors.h"
#include "station/signals/dbc_reader.h"
#include "station/signals/decoder.h"
#include "station/signals/ldf_reader.h"

// The text of a database of either format, whose messages are then decoded with its own bytes as
// their data. What can't be read is refused with its line.

namespace {

using namespace station;

void checkMessage(const Decoder::Message& message, std::span<const std::uint8_t> data) {
    const auto& signals = message.getDefinition().signals;
    std::vector<DecodedSignal> all(signals.size());
    const std::size_t count = message.decodeInto(all, data);
    const std::size_t size = std::min(data.size(), Decoder::Message::mostData);
    for (std::size_t i = 0; i < count; ++i) {
        require(all[i].definition == &signals[all[i].index], "a signal is another one");
        require(i == 0 || all[i - 1].index < all[i].index, "the order of signals");
        require(all[i].definition->getEndByte() <= size, "a signal lies outside of its message");
        const std::size_t on = all[i].definition->multiplexing.switchIndex;
        require(on == Multiplexing::none ||
                    std::any_of(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(count),
                                [&](const DecodedSignal& other) { return other.index == on; }),
                "a signal is there without its switch");
    }
}

template <typename Read>
void check(const Read& read, const std::string& path, std::span<const std::uint8_t> data) {
    std::shared_ptr<const Database> database;
    try {
        database = std::make_shared<const Database>(read(path));
    } catch (const UserError& error) {
        const std::string text = error.what();
        require(text.starts_with(path + ", line ") && text[path.size() + 7] != '0',
                "a fault has no line");
        return;
    }
    require(!database->messages.empty(), "a database without messages");
    const Decoder decoder(database);
    for (const MessageDefinition& definition : database->messages) {
        const Decoder::Message* const message = decoder.find(definition.id, definition.isExtended);
        require(message != nullptr && &message->getDefinition() == &definition,
                "a message isn't found, or is there twice");
        for (const std::size_t size :
             {std::size_t{0}, std::size_t{1}, std::size_t{8}, data.size()}) {
            checkMessage(*message, data.last(std::min(size, data.size())));
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const MemoryFile file(data, size);
    check(readDbc, file.path(), {data, size});
    check(readLdf, file.path(), {data, size});
    return 0;
}
