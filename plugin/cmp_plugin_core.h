#pragma once

#include <memory>
#include <string>

#include "bridge/input/input_manager_impl.h"
#include "bridge/output/output_factory_impl.h"
#include "capture/cmp_packet_reader.h"
#include "host/counted_ref.h"
#include "host/host_app.h"
#include "host/host_plugin_group.h"
#include "sync/gnss_sync_manager_impl.h"

using Kestrova::Utils::Kcom::InputChannel::InputManagerImpl;
using Kestrova::Utils::Kcom::OutputChannel::OutputFactoryImpl;
using Kestrova::Utils::Kcom::Synchronization::GNSSSyncManagerImpl;

class SettingsWindow;
class SetupWindow;

/// The inner part of the plug-in, which its windows see too. It goes before the sides that it
/// refers to. The windows go first: what they hold of the modules needs all the rest. Then goes the
/// packet reader, and its thread with it.
struct CmpPluginCore {
    CmpPluginCore(InputManagerImpl& inputs, OutputFactoryImpl& outputs, CapturePort& port,
                  const PerformanceCounter& counter)
        : inputManager(inputs),
          outputFactory(outputs),
          syncManager(counter),
          packetReader(&syncManager, &outputFactory, port, counter) {}
    CmpPluginCore(const CmpPluginCore&) = delete;
    CmpPluginCore& operator=(const CmpPluginCore&) = delete;
    ~CmpPluginCore() {
        settingsWindow.reset();
        setupWindow.reset();
    }

    InputManagerImpl& inputManager;
    OutputFactoryImpl& outputFactory;
    CountedRef<HostApp> host;
    std::shared_ptr<const std::wstring> pluginId;  ///< the class identifier in braces
    CountedRef<HostPluginGroup> pluginGroup;
    std::shared_ptr<SetupWindow> setupWindow;        ///< null while it isn't open
    std::shared_ptr<SettingsWindow> settingsWindow;  ///< the same
    GNSSSyncManagerImpl syncManager;
    CmpPacketReader packetReader;
};
