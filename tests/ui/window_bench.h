#pragma once

#include "plugin/cmp_plugin_core.h"
#include "station/runtime/runtime_exports.h"
#include "station/toolkit/model/draw_grid.h"
#include "tests/support/capture_stand_ins.h"
#include "tests/support/scripted_host.h"
#include "tests/support/toolkit_bench.h"
#include "tests/support/wire_frames.h"
#include "ui/settings_window.h"
#include "ui/setup_window.h"

/// The inner part of the plug-in at a scripted host, with a user in front of a window. At the end
/// nothing that was handed out is still held.
class WindowBench {
  public:
    explicit WindowBench(std::unique_ptr<ToolkitBench> toolkit) : user(std::move(toolkit)) {
        port.add("if0", {});
        counter.count = 100 * counter.frequency;
        const CountedRef<HostApp> app(&host.app);
        const auto id = std::make_shared<const std::wstring>(L"{id}");
        inputs->attachHost(app, id);
        outputs->attachHost(app, id, &host.groupOfPlugins);
        core->host = app;
        core->syncManager.SetHost(&host.app);
        core->packetReader.openInterfaces();
        core->packetReader.prepareRead(true);
    }
    ~WindowBench() {
        settings.reset();
        setup.reset();
        user.reset();
        core.reset();
        outputs.reset();
        inputs.reset();
        EXPECT_EQ(kvRtTrackedCount(), handlersBefore);
    }
    WindowBench(const WindowBench&) = delete;
    WindowBench& operator=(const WindowBench&) = delete;

    void openSettings() {
        settings = Kestrova::Tessel::KVWindow::make<SettingsWindow>(
            Kestrova::Tessel::hostWindow(user->window()), *core);
    }
    void openSetup() {
        setup = Kestrova::Tessel::KVWindow::make<SetupWindow>(
            Kestrova::Tessel::hostWindow(user->window()), *core);
    }

    CmpDevices& devices() { return core->packetReader.getDevices(); }
    CmpDevice& add(std::uint32_t typeId, std::uint16_t configId) {
        CmpDevice& device = *devices().add();
        device.setTypeById(typeId);
        device.setConfigId(configId);
        outputs->beginLoadSetup();
        device.createOutputs();
        outputs->endLoadSetup();
        return device;
    }
    /// The frame comes in, on this thread.
    void read(const wire::Bytes& frame) {
        port.interfaces[0].reads.push_back({CaptureHandle::gotFrame, frame});
        core->packetReader.readPass();
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
    std::vector<std::string> deviceNames() {
        std::vector<std::string> names;
        for (const auto& device : devices().list()) {
            names.push_back(device->getName());
        }
        return names;
    }

    static constexpr std::uint32_t refreshTime = 100;  ///< milliseconds from tick to tick

    const std::size_t handlersBefore = kvRtTrackedCount();
    ScriptedHost host;
    ManualCounter counter;
    ScriptedPort port;
    std::unique_ptr<InputManagerImpl> inputs = std::make_unique<InputManagerImpl>();
    std::unique_ptr<OutputFactoryImpl> outputs = std::make_unique<OutputFactoryImpl>();
    std::unique_ptr<CmpPluginCore> core =
        std::make_unique<CmpPluginCore>(*inputs, *outputs, port, counter);
    std::unique_ptr<ToolkitBench> user;
    std::shared_ptr<SettingsWindow> settings;
    std::shared_ptr<SetupWindow> setup;
};

/// The windows on each toolkit.
class WindowTest : public testing::TestWithParam<MakeToolkitBench>, protected WindowBench {
  protected:
    WindowTest() : WindowBench(GetParam()()) {}
};
class SettingsWindowTest : public WindowTest {};
class SetupWindowTest : public WindowTest {};
