#include "station/session/loaded_module.h"
#include "station/stream/stream.h"

namespace station {

std::unique_ptr<Stream> openStream(const StreamSettings& settings) {
    const auto open = reinterpret_cast<OpenStream>(
        findInOwnModule("cmp_stream.so", openStreamName, "module of the stream"));
    return std::unique_ptr<Stream>(open(CMP_VERSION, settings));
}

}  // namespace station
