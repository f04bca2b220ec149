#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "host/counted_ref.h"
#include "host/host_variant.h"

namespace Kestrova::Utils::Kcom::OutputChannel {

/// One sample of a varying size on its way to the host, which may keep it.
class SampleBytes final : public HostByteArray {
  public:
    /// A copy of the bytes. Throws `std::bad_alloc`.
    static CountedRef<SampleBytes> make(const void* data, std::uint64_t size);

    HostResult queryInterface(const InterfaceId& interfaceId, void** result) override;
    std::uint32_t addRef() override { return ++references; }
    std::uint32_t release() override;
    HostResult getBytes(const std::uint8_t** data, std::uint64_t* size) override;

  private:
    SampleBytes(const std::uint8_t* data, std::uint64_t size) : bytes(data, data + size) {}
    ~SampleBytes() = default;

    std::atomic<std::uint32_t> references = 1;
    const std::vector<std::uint8_t> bytes;
};

}  // namespace Kestrova::Utils::Kcom::OutputChannel
