#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "capture/capture_messages.h"
#include "capture/capture_port.h"
#include "capture/cmp_devices.h"
#include "capture/cmp_message.h"
#include "capture/message_burst.h"
#include "capture/receive_clock.h"
#include "capture/sequence_locked.h"
#include "capture/traffic_counts.h"
#include "core/frame_sink.h"
#include "core/performance_counter.h"
#include "core/thread_ex.h"

/// One interface that is open for capture.
struct PcapInterface {
    std::unique_ptr<CaptureHandle> handle;
    std::uint32_t net = 0;  ///< network number, 0 if it isn't known
    std::uint32_t mask = 0;
    std::string name;
    std::string description;
    std::int32_t status = 0;
    std::string statusText;
};

/// The capture side: it owns the open interfaces, the capture thread and the device registry.
///
/// The thread reads each interface in turn until that one has nothing more, decodes each frame of
/// EtherType 0x99FE message by message, and routes the messages to devices and channels. It never
/// touches the host and logs nothing: what can't be decoded or routed is dropped. The host's thread
/// starts and stops it and does everything else. All members but the flags and the number of
/// dropped frames are changed with the thread stopped.
///
/// Working modes: stopped; idle read, in which only status messages have an effect; data read.
class CmpPacketReader : private Kestrova::Utils::Threading::ThreadEx {
  public:
    using GNSSSyncManager = CmpDevices::GNSSSyncManager;
    using OutputFactory = CmpDevices::OutputFactory;
    using Node = CmpDevices::Node;

    /// Values of `lastError`.
    static constexpr std::int32_t noError = 0;
    static constexpr std::int32_t listFailed = 2;
    static constexpr std::int32_t openFailed = 3;

    /// None is owned and all outlive the reader.
    CmpPacketReader(GNSSSyncManager* manager, OutputFactory* factory, CapturePort& capturePort,
                    const PerformanceCounter& performanceCounter);
    ~CmpPacketReader() override;

    /// The interfaces of the machine, as `CapturePort::findAllDevices`.
    std::int32_t listInterfaces(std::vector<CaptureInterface>& found, std::string& error) {
        return port.findAllDevices(found, error);
    }
    /// By name those that are opened from now on; none means all.
    void selectInterfaces(std::vector<std::string> names) { selection = std::move(names); }
    /// Opens the selected interfaces of the machine, or all that don't only repeat others; the
    /// former ones are closed. Interfaces that can't be opened are passed over, and `getLastError`
    /// is of the last; they are captured on when they can be opened, as those that appear later.
    /// The thread must be stopped.
    void openInterfaces();
    std::int32_t getLastError() const { return lastError; }
    const std::string& getLastErrorText() const { return lastErrorText; }
    const std::vector<PcapInterface>& getInterfaces() const { return interfaces; }
    /// What became of interfaces since the last call, for the user: those that can't be opened, are
    /// left out, appear later or go away. Any thread.
    std::vector<CaptureMessages::Message> takeMessages() { return messages.take(); }

    /// Data read: stops a running thread, empties the channels and starts.
    void startRead();
    /// Idle read, the same way.
    void startIdle();
    void openAndStartRead();
    /// Idle read in which the keys of removed devices stay taken.
    void startSetupRead();
    void stopFreeze();
    using ThreadEx::IsStarted;
    using ThreadEx::Stop;

    /// What the start operations do before the thread starts. For an owner that calls `readPass`
    /// itself, on one thread.
    void prepareRead(bool deliverData);
    /// Reads every interface until it times out, once round. The capture thread.
    void readPass();
    /// Makes what was counted up to now visible. The capture thread.
    void publishCounts();

    /// Frames of any kind that the system threw away since the last start of data read, as they
    /// weren't read in time. Any thread.
    std::uint64_t getDroppedFrames() const { return droppedFrames; }
    /// What was read since the last start of data read, as it was known within the last tenth of a
    /// second, or when the thread was stopped. Host's thread.
    MessageCounts getMessageCounts() const { return publishedMessages.load(); }
    /// Whose status came since the thread was started, with data read or not, while they weren't
    /// among the devices. Any thread.
    UnknownModules getUnknownModules() const { return publishedUnknown.load(); }
    struct InterfaceFrames {
        std::string name;  ///< empty for all that were opened later
        FrameCounts frames;
    };
    std::vector<InterfaceFrames> getFrameCounts() const;
    /// Gets the capture frames of data read, `source` being their place in `getFrameCounts`; null
    /// for none. It isn't owned. The thread must be stopped, or read no data.
    void setFrameSink(FrameSink* sink) { frameSink = sink; }

    CmpDevices& getDevices() { return devices; }
    void resetChannels() { devices.resetChannels(); }
    void takeOver() { devices.takeOver(); }
    void flushTakenOver() { devices.flushTakenOver(); }
    void flushAll() { devices.flushAll(); }
    void releaseOutputs() { devices.releaseOutputs(); }
    void saveDevices(Node& node) const { devices.saveDevices(node); }
    void loadDevices(Node& node) { devices.loadDevices(node); }
    void saveChannels(Node& node) const { devices.saveChannels(node); }
    void loadChannels(Node& node) { devices.loadChannels(node); }

  private:
    void Run() override;

    bool nextFrame(CapturedFrame& frame);
    void passOn(const CapturedFrame& frame);
    void readMessages(const CapturedFrame& frame, CmpHeader& header);
    void onPassEnd();
    void beginCounting();
    void closeInterfaces();
    void openLate();
    void handOver() { burst.handOver(frameTimeStamp, readAt); }
    void renewDirectory();
    /// For every message and every read, so that a change of the device list needn't wait.
    void renewIfReplaced() {
        if (directory->isReplaced()) {
            renewDirectory();
        }
    }
    const DeviceDirectory& latestDirectory() {
        renewIfReplaced();
        return directory->get();
    }

    void onMessage(const CmpHeader& header, const std::uint8_t* payload);
    void onCmStatusMessage(const DeviceTime& time, const CmpHeader& header,
                           const std::uint8_t* payload);
    void onCmStatus(const DeviceTime& time, const CmStatus& status);
    void onBusStatusMessage(const CmpHeader& header, const std::uint8_t* payload);
    void onDataMessage(const DeviceTime& time, const CmpHeader& header,
                       const std::uint8_t* payload);
    void onData(const DeviceTime& time, const CmpHeader& header, const std::uint8_t* payload,
                std::uint32_t length);

    CapturePort& port;
    const PerformanceCounter& counter;
    CmpDevices devices;
    std::int32_t lastError = noError;
    std::string lastErrorText;
    std::atomic<bool> readData{false};
    /// Makes a device of each unknown module that sends a status. Every start clears it and nothing
    /// sets it: devices come from the user and the setup.
    std::atomic<bool> autoAddDevices{false};
    std::vector<std::string> selection;  ///< names of interfaces; empty: all
    CaptureMessages messages;
    std::vector<PcapInterface> interfaces;
    std::unique_ptr<CaptureHandle> late;  ///< all that are opened later; null if the port has none
    /// What a pass reads, in its order: the handles of `interfaces`, and `late`.
    struct Source {
        CaptureHandle* handle = nullptr;
        // Before data read was started.
        std::uint64_t droppedBefore = 0;
        std::uint64_t receivedBefore = 0;
        FrameCounts counts = {};  ///< the capture thread's own
    };
    std::vector<Source> sources;
    std::vector<SequenceLocked<FrameCounts>> publishedFrames;  ///< by source
    SequenceLocked<MessageCounts> publishedMessages;
    SequenceLocked<UnknownModules> publishedUnknown;
    std::atomic<std::uint64_t> droppedFrames{0};
    std::atomic<FrameSink*> frameSink{nullptr};

    // The capture thread's own, during a pass.
    std::size_t sourceIndex = 0;      ///< position of the pass in `sources`
    std::int64_t readAt = 0;          ///< when the frame was read, nanoseconds on `counter`
    std::int64_t frameTimeStamp = 0;  ///< when it came in, the same
    std::int64_t countedAt = 0;       ///< when the counts were published, the same
    MessageCounts messageCounts;
    UnknownModules unknownModules;
    ReceiveClock receiveClock;
    DirectoryPublisher::Reader* directory = nullptr;
    MessageBurst burst;
};
