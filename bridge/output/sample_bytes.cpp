#include "bridge/output/sample_bytes.h"

namespace Kestrova::Utils::Kcom::OutputChannel {

CountedRef<SampleBytes> SampleBytes::make(const void* data, std::uint64_t size) {
    return CountedRef<SampleBytes>::adopt(
        new SampleBytes(static_cast<const std::uint8_t*>(data), size));
}

HostResult SampleBytes::queryInterface(const InterfaceId& interfaceId, void** result) {
    *result = nullptr;
    if (interfaceId == HostObject::id) {
        *result = static_cast<HostObject*>(this);
    } else if (interfaceId == HostByteArray::id) {
        *result = static_cast<HostByteArray*>(this);
    } else {
        return HostCode::noInterface;
    }
    addRef();
    return HostCode::success;
}

std::uint32_t SampleBytes::release() {
    const std::uint32_t left = --references;
    if (left == 0) {
        delete this;
    }
    return left;
}

HostResult SampleBytes::getBytes(const std::uint8_t** data, std::uint64_t* size) {
    *data = bytes.data();
    *size = bytes.size();
    return HostCode::success;
}

}  // namespace Kestrova::Utils::Kcom::OutputChannel
