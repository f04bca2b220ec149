#include "capture/cmp_packet_reader.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "capture/frame_decoder.h"

namespace {

constexpr std::int32_t snapLength = 65536;
constexpr bool promiscuous = true;
constexpr std::int32_t readTimeoutMs = 1;

}  // namespace

CmpPacketReader::CmpPacketReader(GNSSSyncManager* manager, OutputFactory* factory,
                                 CapturePort& capturePort,
                                 const PerformanceCounter& performanceCounter)
    : port(capturePort),
      counter(performanceCounter),
      devices(manager, factory, performanceCounter),
      receiveClock(performanceCounter) {}

CmpPacketReader::~CmpPacketReader() {
    Stop();
    closeInterfaces();
}

void CmpPacketReader::closeInterfaces() {
    sources.clear();
    std::vector<std::unique_ptr<CaptureHandle>> closing;
    closing.push_back(std::move(late));
    for (PcapInterface& interface : interfaces) {
        closing.push_back(std::move(interface.handle));
    }
    closeTogether(closing);
    interfaces.clear();
}

void CmpPacketReader::openInterfaces() {
    lastError = noError;
    lastErrorText.clear();
    std::vector<CaptureInterface> found;
    std::string error;
    if (port.findAllDevices(found, error) == -1) {
        lastError = listFailed;
        lastErrorText = error;
        messages.report("", error);
        return;
    }
    closeInterfaces();
    messages.clear();
    for (const std::string& name : selection) {
        if (std::none_of(found.begin(), found.end(),
                         [&name](const CaptureInterface& device) { return device.name == name; })) {
            messages.report(name, port.isOfOtherKind(name)
                                      ? otherKindText(name)
                                      : "there is no Ethernet interface " + name +
                                            "; it is captured when it appears");
        }
    }
    for (CaptureInterface& device : found) {
        if (!selection.empty() &&
            std::find(selection.begin(), selection.end(), device.name) == selection.end()) {
            continue;
        }
        if (selection.empty() && !device.repeated.empty()) {
            messages.reportHarmless(device.name, leftOutText(device.name, device.repeated));
            continue;
        }
        PcapInterface opened;
        opened.handle = port.openLive(device.name, snapLength, promiscuous, readTimeoutMs, error);
        if (!opened.handle) {
            lastError = openFailed;
            lastErrorText = error;
            messages.report(device.name, notOpenedText(error));
            continue;
        }
        if (port.lookupNet(device.name, opened.net, opened.mask, error) == -1) {
            opened.net = 0;
            opened.mask = 0;
        }
        opened.name = std::move(device.name);
        opened.description = std::move(device.description);
        interfaces.push_back(std::move(opened));
    }
    openLate();
}

void CmpPacketReader::openLate() {
    std::vector<const CaptureHandle*> opened;
    for (const PcapInterface& interface : interfaces) {
        opened.push_back(interface.handle.get());
        sources.push_back({interface.handle.get()});
    }
    late = port.openLate(
        {std::move(opened), selection, snapLength, promiscuous, readTimeoutMs, &messages});
    if (late) {
        sources.push_back({late.get()});
    }
    publishedFrames = std::vector<SequenceLocked<FrameCounts>>(sources.size());
}

void CmpPacketReader::prepareRead(bool deliverData) {
    devices.endCounting();
    devices.forgetHeard();
    resetChannels();
    readData.exchange(deliverData);
    if (deliverData) {
        devices.beginCounting();
        beginCounting();
    }
    autoAddDevices.exchange(false);
    unknownModules = {};
    publishedUnknown.store(unknownModules);
}

void CmpPacketReader::startRead() {
    Stop();
    prepareRead(true);
    Start();
}

void CmpPacketReader::startIdle() {
    Stop();
    prepareRead(false);
    Start();
}

void CmpPacketReader::openAndStartRead() {
    openInterfaces();
    startRead();
}

void CmpPacketReader::startSetupRead() {
    devices.beginFreeze();
    startIdle();
}

void CmpPacketReader::stopFreeze() {
    Stop();
    devices.endFreeze();
}

void CmpPacketReader::Run() {
    SetThreadName("cmp-capture");
    while (!IsStopRequested()) {
        readPass();
        if (sources.empty()) {  // no read paces the pass
            std::this_thread::sleep_for(std::chrono::milliseconds(readTimeoutMs));
        }
        constexpr std::int64_t period = 100'000'000;  // nanoseconds
        if (const std::int64_t now = counter.getNanoseconds(); now - countedAt >= period) {
            countedAt = now;
            publishCounts();
        }
    }
    publishCounts();
}

/// While the first interfaces wait for the last to be opened, nobody reads them: what they drop
/// until then was stamped before the measurement.
void CmpPacketReader::beginCounting() {
    for (Source& source : sources) {
        const SystemCounts system = source.handle->getCounts();
        source.droppedBefore = system.dropped;
        // What waits is read from now on.
        source.receivedBefore = system.received.value_or(0) - system.waiting;
        source.counts = {};
    }
    messageCounts = {};
    publishCounts();
}

/// In data read only: what comes later is no part of the measurement.
void CmpPacketReader::publishCounts() {
    if (!readData) {
        return;
    }
    std::uint64_t dropped = 0;
    for (std::size_t i = 0; i < sources.size(); ++i) {
        Source& source = sources[i];
        const SystemCounts system = source.handle->getCounts();
        source.counts.dropped = system.dropped - source.droppedBefore;
        source.counts.received = system.received;
        if (system.received) {
            *source.counts.received -= source.receivedBefore;
        }
        dropped += source.counts.dropped;
        publishedFrames[i].store(source.counts);
    }
    publishedMessages.store(messageCounts);
    droppedFrames = dropped;
}

std::vector<CmpPacketReader::InterfaceFrames> CmpPacketReader::getFrameCounts() const {
    std::vector<InterfaceFrames> frames;
    for (std::size_t i = 0; i < publishedFrames.size(); ++i) {
        frames.push_back(
            {i < interfaces.size() ? interfaces[i].name : "", publishedFrames[i].load()});
    }
    return frames;
}

/// An interface is drained before the next is looked at, and the pass ends when the last has timed
/// out. One header record serves the whole pass, see `CmpHeader`.
void CmpPacketReader::readPass() {
    DirectoryPublisher::Reader reader(devices.getDirectory());
    directory = &reader;
    sourceIndex = 0;
    CmpHeader header;
    CapturedFrame frame;
    receiveClock.synchronize();
    while (nextFrame(frame) && !IsStopRequested()) {
        readAt = counter.getNanoseconds();
        frameTimeStamp = receiveClock.toCounter(frame.receivedAt, readAt);
        passOn(frame);
        readMessages(frame, header);
    }
    onPassEnd();
    directory = nullptr;
}

/// Reads on until a capture frame comes; false when all interfaces have timed out. A read error
/// leaves the frame as the last read set it. Foreign frames in plenty don't hold up a stop.
bool CmpPacketReader::nextFrame(CapturedFrame& frame) {
    while (sourceIndex < sources.size() && !IsStopRequested()) {
        Source& source = sources[sourceIndex];
        const std::int32_t result = source.handle->next(frame);
        renewIfReplaced();
        if (result != CaptureHandle::timeout && frame.isCaptureFrame()) {
            ++source.counts.kept;
            return true;
        }
        handOver();
        if (result == CaptureHandle::timeout) {
            ++sourceIndex;
        } else if (result == CaptureHandle::gotFrame) {
            ++source.counts.foreign;
        }
    }
    return false;
}

void CmpPacketReader::passOn(const CapturedFrame& frame) {
    FrameSink* const sink = frameSink.load(std::memory_order_relaxed);
    if (sink == nullptr || !readData) {
        return;
    }
    sink->onFrame(static_cast<std::uint32_t>(sourceIndex),
                  frame.receivedAt != CapturedFrame::notStamped ? frame.receivedAt
                                                                : counter.getRealNanoseconds(),
                  frame.data, frame.length);
}

void CmpPacketReader::readMessages(const CapturedFrame& frame, CmpHeader& header) {
    std::int32_t offset = 0;
    const std::uint8_t* payload = nullptr;
    const auto frameLength = static_cast<std::int32_t>(frame.length);
    std::int32_t result = parseFrame(frame.data, frameLength, &offset, header, payload);
    if (result == DecodeResult::ok) {
        if (CmpDevice* const device = latestDirectory().findDevice(header.cmId)) {
            device->noteCounter(header.counter);
        }
    }
    while (result == DecodeResult::ok && !IsStopRequested()) {
        onMessage(header, payload);
        result = parseNextMessage(frame.data, frameLength, offset, header, payload);
    }
    if (result == DecodeResult::invalid) {
        // The decoder refuses the bus status of ASAM CMP, which has another form.
        const bool isAsam = frame.data[14] != 0;
        ++(isAsam && header.messageType == MessageType::busStatus
               ? messageCounts.other
               : sources[sourceIndex].counts.malformed);
    }
    burst.endFrame(frameTimeStamp, readAt);
}

/// Channels may go with the directory that is replaced: what they still have to get goes first.
void CmpPacketReader::renewDirectory() {
    handOver();
    directory->renew();
}

// What becomes of a decoded message. All of it runs on the capture thread.

void CmpPacketReader::onMessage(const CmpHeader& header, const std::uint8_t* payload) {
    const DeviceTime time = splitTimestamp(header.timestamp);
    switch (header.messageType) {
        case MessageType::cmStatus:
            ++messageCounts.moduleStatus;
            onCmStatusMessage(time, header, payload);
            break;
        case MessageType::busStatus:
            ++messageCounts.busStatus;
            onBusStatusMessage(header, payload);
            break;
        case MessageType::data:
            ++messageCounts.data;
            onDataMessage(time, header, payload);
            break;
        default:
            ++messageCounts.other;
            break;
    }
}

void CmpPacketReader::onCmStatusMessage(const DeviceTime& time, const CmpHeader& header,
                                        const std::uint8_t* payload) {
    CmStatus status;
    if (header.isAsam) {
        if (decodeAsamCmStatus(payload, header.dataLength, status) != DecodeResult::ok) {
            return;
        }
        status.cmId = header.cmId;
    } else if (decodeCmStatus(header, payload, status) != DecodeResult::ok) {
        return;
    }
    onCmStatus(time, status);
}

void CmpPacketReader::onCmStatus(const DeviceTime& time, const CmStatus& status) {
    if (CmpDevice* const device = latestDirectory().findDevice(status.cmId)) {
        device->setLatestTime(time, frameTimeStamp, readData);
        device->setStatus(time, status);
        return;
    }
    if (unknownModules.note(status.cmId)) {
        publishedUnknown.store(unknownModules);
    }
    if (autoAddDevices) {
        const auto added = devices.add();
        added->setCmId(status.cmId);
        added->setStatus(time, status);
    }
}

void CmpPacketReader::onBusStatusMessage(const CmpHeader& header, const std::uint8_t* payload) {
    std::int32_t offset = 0;
    BusStatus status;
    while (decodeBusStatus(header, payload, &offset, status) == DecodeResult::ok) {
        const auto interfaceId = static_cast<std::uint16_t>(status.interfaceId);
        if (CmpChannel* const channel = latestDirectory().find(status.cmId, interfaceId).channel) {
            channel->setBusStatus(status);
        }
    }
}

void CmpPacketReader::onDataMessage(const DeviceTime& time, const CmpHeader& header,
                                    const std::uint8_t* payload) {
    RebuiltPayload rebuilt;
    std::uint32_t length = header.dataLength;
    if (header.isAsam) {
        rebuildAsamData(header, payload, length, rebuilt);
        payload = rebuilt.bytes;
        length = rebuilt.length;
    }
    onData(time, header, payload, length);
}

void CmpPacketReader::onData(const DeviceTime& time, const CmpHeader& header,
                             const std::uint8_t* payload, std::uint32_t length) {
    if (length == 0) {
        ++messageCounts.empty;
        return;
    }
    if (!readData) {
        return;
    }
    const auto interfaceId = static_cast<std::uint16_t>(header.channelId);
    const DeviceDirectory::Route route = latestDirectory().find(header.cmId, interfaceId);
    if (route.device == nullptr) {
        messageCounts.addUnknownModule(header.cmId);
        return;
    }
    messageCounts.unknownChannel += route.channel == nullptr ? 1 : 0;
    burst.add(route, time, payload, length);
}

void CmpPacketReader::onPassEnd() {
    handOver();
    for (const auto& device : latestDirectory().getDevices()) {
        device->publishTime();
    }
}
