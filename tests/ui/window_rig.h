#pragma once

#include "plugin/cmp_plugin_core.h"
#include "station/runtime/runtime_exports.h"
#include "station/toolkit/model/draw_grid.h"
#include "tests/support/capture_stand_ins.h"
#include "tests/support/sample_frames.h"
#include "tests/support/scripted_host.h"
#include "tests/support/toolkit_rig.h"
#include "ui/settings_window.h"
#include "ui/setup_window.h"

/// How many handlers the plug-in has made. At its end nobody holds one of them any more.
struct HandlerCount {
    const std::size_t before = kvRtTrackedCount();

    ~HandlerCount() { EXPECT_EQ(now(), 0U) << "handlers that are still held"; }
    std::size_t now() const { return kvRtTrackedCount() - before; }
};

/// The inner part of the plug-in at a scripted host, with a user in front of a window, on each
/// toolkit.
class WindowTest : public testing::TestWithParam<MakeToolkitRig> {
  protected:
    WindowTest() {
        port.add("if0", {});
        counter.count = 100 * counter.frequency;
        const CountedRef<HostApp> app(&host.app);
        const auto id = std::make_shared<const std::wstring>(L"{id}");
        inputs.attachHost(app, id);
        outputs.attachHost(app, id, &host.groupOfPlugins);
        core.host = app;
        core.syncManager.SetHost(&host.app);
        core.packetReader.openInterfaces();
        core.packetReader.prepareRead(true);
    }

    void openSettings() { openSettingsIn(*user); }
    void openSettingsIn(ToolkitRig& place) {
        settings = Kestrova::Tessel::KVWindow::make<SettingsWindow>(
            Kestrova::Tessel::hostWindow(place.window()), core);
    }
    void openSetup() {
        setup = Kestrova::Tessel::KVWindow::make<SetupWindow>(
            Kestrova::Tessel::hostWindow(user->window()), core);
    }

    CmpDevice& add(std::uint32_t typeId, std::uint16_t configId) {
        CmpDevice& device = *devices.add();
        device.setTypeById(typeId);
        device.setConfigId(configId);
        outputs.beginLoadSetup();
        device.createOutputs();
        outputs.endLoadSetup();
        return device;
    }
    /// The frame comes in, on this thread.
    void read(const wire::Bytes& frame) {
        port.interfaces[0].reads.push_back({CaptureHandle::gotFrame, frame});
        core.packetReader.readPass();
    }

    /// A row as the user sees it: "1|Unknown||0||".
    std::string row(const std::string& grid, std::int32_t number) {
        std::string text;
        const auto columns = static_cast<std::int32_t>(user->titles(grid).size());
        for (std::int32_t column = 0; column < columns; ++column) {
            text += (column == 0 ? "" : "|") + user->read({grid, number, column});
        }
        return text;
    }
    /// The grid's columns as the window describes them: "id ID 3 1 32 -A|type Type 8 1 80|".
    std::string columns(const std::string& grid) {
        using namespace Kestrova::Tessel;
        const KVDrawGrid found(hostWindow(user->window()), grid);
        std::ostringstream text;
        for (const auto& column : dynamic_cast<station::DrawGrid&>(found.target()).getColumns()) {
            text << column.name << ' ' << column.title << ' ' << column.type << ' ' << column.one
                 << ' ' << column.width << (column.flagA ? *column.flagA ? " A" : " -A" : "")
                 << (column.flagB ? *column.flagB ? " B" : " -B" : "") << '|';
        }
        return text.str();
    }

    static constexpr std::uint32_t refreshTime = 100;  ///< milliseconds from tick to tick

    HandlerCount handlers;
    ScriptedHost host;
    ManualCounter counter;
    ScriptedPort port;
    InputManagerImpl inputs;
    OutputFactoryImpl outputs;
    CmpPluginCore core{inputs, outputs, port, counter};
    CmpDevices& devices = core.packetReader.getDevices();
    std::unique_ptr<ToolkitRig> user = GetParam()();
    std::shared_ptr<SetupWindow> setup;
    std::shared_ptr<SettingsWindow> settings;
};
class SettingsWindowTest : public WindowTest {};
class SetupWindowTest : public WindowTest {};
