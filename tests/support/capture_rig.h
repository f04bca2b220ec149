#pragma once

#include "capture/cmp_packet_reader.h"
#include "tests/support/capture_stand_ins.h"
#include "tests/support/wire_frames.h"

/// The capture side on scripted reads, all on the caller's thread: frames go in at an interface and
/// come out as samples of the output stand-ins. Data read is on.
struct CaptureRig {
    ManualCounter counter;
    ScriptedPort port;
    FakeSyncManager manager;
    FakeOutputFactory factory;
    CmpPacketReader reader{&manager, &factory, port, counter};
    CmpDevices& devices = reader.getDevices();

    CaptureRig() {
        port.add("if0", {});
        reader.openInterfaces();
        reader.prepareRead(true);
    }

    CmpDevice& add(std::uint32_t typeId, std::uint16_t configId) {
        CmpDevice& device = *devices.add();
        device.setTypeById(typeId);
        device.setConfigId(configId);
        device.createOutputs();
        return device;
    }

    /// A device of each type, with the CM IDs 0x41, 0x32, 7 and 5.
    void addOneOfEach() {
        add(DeviceTypeInfo::canComboId, 1);
        add(DeviceTypeInfo::linComboId, 2);
        add(DeviceTypeInfo::neoviFire3Id, 7);
        add(DeviceTypeInfo::unknownId, 5);
    }

    /// One read pass over these frames.
    void read(const std::vector<wire::Bytes>& frames) {
        for (const wire::Bytes& frame : frames) {
            port.interfaces[0].reads.push_back({CaptureHandle::gotFrame, frame});
        }
        reader.readPass();
    }

    /// Whether a record has its size, a length that fits and nothing but zeros behind the data.
    static bool isWholeRecord(const FakeOutput::Sample& sample) {
        const std::size_t dataAt = sample.variant ? 4 : 8;
        const std::size_t mostData = sample.variant ? 8 : 64;
        const std::vector<std::uint8_t>& bytes = sample.bytes;
        if (bytes.size() != (sample.variant ? 13 : 72)) {
            return false;
        }
        const std::size_t length = bytes[sample.variant ? 1 : 7];
        return length <= mostData && std::all_of(&bytes[dataAt] + length, &bytes[dataAt] + mostData,
                                                 [](std::uint8_t byte) { return byte == 0; });
    }

    static std::vector<FakeOutput::Sample>& samplesOf(const CmpChannel& channel) {
        return static_cast<FakeOutput&>(*channel.getOutput()).samples;
    }
    static std::vector<FakeOutput::Sample>& samplesOf(const CmpDevice& device,
                                                      std::uint16_t interfaceId) {
        return samplesOf(*device.findChannel(interfaceId));
    }
    static FakeClock& clockOf(const CmpDevice& device) {
        return static_cast<FakeClock&>(*device.getClock());
    }
};
