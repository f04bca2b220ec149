#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>

#include "core/gnss_time.h"
#include "host/host_error.h"
#include "plugin/plugin.h"
#include "setup/xml_exception.h"
#include "tests/support/capture_stand_ins.h"
#include "tests/support/scripted_host.h"
#include "tests/support/scripted_variants.h"
#include "tests/support/wire_frames.h"

/// The frames of an interface, which the capture thread takes as they come.
class FrameFeed {
  public:
    void push(wire::Bytes frame) {
        const std::lock_guard guard(lock);
        frames.push_back(std::move(frame));
        ++pushed;
        changed.notify_all();
    }
    /// Returns when all that was pushed has been read and routed, and the modules' times are
    /// published; false if that doesn't happen. The capture thread must be running.
    bool drain() {
        std::unique_lock guard(lock);
        return changed.wait_for(guard, std::chrono::minutes(1),
                                [&] { return published == pushed; });
    }
    /// The capture thread: waits for a frame, a moment only.
    ScriptedRead operator()() {
        std::unique_lock guard(lock);
        if (timedOut) {  // it comes back with the next pass
            published = taken;
            changed.notify_all();
        }
        constexpr std::chrono::microseconds readTimeout(100);
        timedOut = !changed.wait_for(guard, readTimeout, [&] { return !frames.empty(); });
        if (timedOut) {
            return {};
        }
        ScriptedRead read{CaptureHandle::gotFrame, std::move(frames.front())};
        frames.pop_front();
        ++taken;
        return read;
    }

  private:
    std::mutex lock;
    std::condition_variable changed;
    std::deque<wire::Bytes> frames;
    std::size_t pushed = 0;
    std::size_t taken = 0;
    std::size_t published = 0;
    bool timedOut = false;
};

/// What came out of a call of the plug-in, as text: the name of its code, the same behind the kind
/// of exception, or the exception's own text.
template <typename Action>
std::string outcomeOf(Action action) {
    const auto text = [](const char* kind, HostResult code) {
        const std::map<HostResult, std::string> names = {
            {HostCode::success, "success"}, {HostCode::notHandled, "notHandled"},
            {HostCode::aborted, "aborted"}, {HostCode::invalidPointer, "invalidPointer"},
            {HostCode::failed, "failed"},   {HostCode::invalidArgument, "invalidArgument"}};
        return kind + (names.contains(code) ? names.at(code) : std::to_string(code));
    };
    try {
        return text("", action());
    } catch (const HostCallException& failure) {
        return text("call ", failure.getCode());
    } catch (const HostArrayException& failure) {
        return text("array ", failure.getCode());
    } catch (const std::exception& failure) {
        return failure.what();
    }
}

/// The plug-in at a scripted host, with one interface. At its end it checks that the plug-in gave
/// everything back.
///
/// Modules run on a pulse per second in week 0 and follow the host's start time: the device time of
/// `canFrame` is the host's, in seconds.
class PluginRig {
  public:
    using Document = ScriptedDocument;

    PluginRig() {
        port.add("if0", {});
        port.interfaces[0].endless = std::ref(feed);
        host.data.startTime = GNSSTime().ToDayCount();
        makePlugin();
    }
    ~PluginRig() {
        dropPlugin();
        EXPECT_EQ(port.openHandles, 0);
        EXPECT_EQ(CountedObject::count(), 0U);
    }
    PluginRig(const PluginRig&) = delete;
    PluginRig& operator=(const PluginRig&) = delete;

    /// A new plug-in object in place of the present one.
    void makePlugin() {
        dropPlugin();
        object = CountedRef<HostObject>::adopt(Plugin::create(nullptr, port, counter));
        object.queryTo(plugin);
        object.queryTo(events);
    }
    void dropPlugin() {
        plugin.reset();
        events.reset();
        object.reset();
    }

    std::string connect() {
        return outcomeOf([&] { return plugin->onConnectHost(&host.app); });
    }
    std::string event(std::int32_t number, const HostVariant& input = {},
                      HostVariant* result = nullptr) {
        HostVariant unused;
        return outcomeOf(
            [&] { return events->onEvent(number, input, result != nullptr ? result : &unused); });
    }
    std::string eventOf(std::int32_t number, const std::vector<HostVariant>& elements) {
        return event(number, variantOf(host.script.make<ScriptedVariantArray>(elements)));
    }
    std::string settings(Document& document, bool writing) {
        return eventOf(159, {variantOf(&document), variantOf(document.root), variantOf(writing)});
    }
    std::string setup(Document* document, HostElement* element, bool writing, bool keepChannels) {
        return eventOf(158, {variantOf(document), variantOf(element), variantOf(writing),
                             variantOf(keepChannels)});
    }
    std::string setup(Document& document, bool writing) {
        return setup(&document, document.root, writing, false);
    }
    Document& newDocument() { return host.makeDocument(L"Setup", true); }

    /// Settings with a module for each type; all are number 1 of their kind.
    Document& settingsWith(const std::vector<std::uint32_t>& deviceTypes, bool withMaster = false) {
        Document& document = newDocument();
        auto& clocks = document.root->addNew(L"GNSSSyncManager");
        auto& modules = document.root->addNew(L"CmpDevices");
        for (std::size_t i = 0; i < deviceTypes.size(); ++i) {
            auto& clock = clocks.addNew(L"GNSSClock");
            clock.addNewAttribute(L"Id", std::to_wstring(i));
            clock.values = {{L"SyncMode", std::to_wstring(HostGnssDevice::syncModePps)},
                            {L"ClockSource", withMaster && i == 0 ? L"True" : L"False"}};
            modules.addNew(L"CmpDevice").values = {
                {L"ClockId", std::to_wstring(i)},
                {L"DeviceTypeId", std::to_wstring(deviceTypes[i])},
                {L"ConfigId", L"1"},
                {L"Name", L"M\u00FCller \u65E5\u672C"}};
        }
        return document;
    }
    /// Connected, with these modules, their channels, and the first channel in use.
    void equip(const std::vector<std::uint32_t>& deviceTypes, bool withMaster = false) {
        EXPECT_EQ(connect(), "success");
        EXPECT_EQ(settings(settingsWith(deviceTypes, withMaster), false), "success");
        EXPECT_EQ(plugin->onClearSetup(), 0);
        if (!host.groupOfPlugins.mounted.empty()) {
            firstChannel().used = hostTrue;
        }
        host.script.forget();
    }
    ScriptedChannel& firstChannel() { return *host.groupOfPlugins.mounted.at(0); }

    /// A frame of the CAN combo of `settingsWith` on its first interface, at that host time.
    static wire::Bytes canFrame(double seconds, std::uint8_t byte = 1) {
        const auto sinceEpoch = static_cast<std::int64_t>(seconds * 1e9);
        const std::int64_t stamp = gnss_arithmetic::weekEpochUnixSeconds * 1000000000 + sinceEpoch;
        return wire::tecmpData(
            0x41, {{0x10, static_cast<std::uint64_t>(stamp), wire::can(0x123, {byte})}});
    }
    /// Prepares and starts a measurement that stands at second 1.
    std::string startMeasurement() {
        return outcomeOf([&] {
            host.data.position = 1000;
            HostVariant unused;
            plugin->onPrepareAcquisition();
            plugin->onStartAcquisition();
            events->onEvent(115, {}, &unused);
            events->onEvent(105, {}, &unused);
            return events->onEvent(156, {}, &unused);
        });
    }
    /// How many of so many frames come out as samples of the first channel.
    std::int32_t deliver(std::int32_t frames) {
        const std::int32_t before = firstChannel().writePosition;
        for (std::int32_t i = 0; i < frames; ++i) {
            feed.push(canFrame(0.5));
        }
        EXPECT_TRUE(feed.drain());
        EXPECT_EQ(event(117), "success");
        return firstChannel().writePosition - before;
    }

    ScriptedHost host;
    ManualCounter counter;
    FrameFeed feed;
    ScriptedPort port;
    CountedRef<HostObject> object;
    CountedRef<IPlugin3> plugin;
    CountedRef<IPlugin4> events;
};

class PluginTest : public testing::Test, protected PluginRig {};
