#pragma once

#include <cstdint>

#include "host/counted_ref.h"
#include "host/host_app.h"
#include "host/host_plugin_group.h"
#include "plugin/capture_facts.h"
#include "plugin/cmp_plugin_core.h"
#include "plugin/counted_object.h"
#include "plugin/module_operations.h"
#include "plugin/plugin_positions.h"

/// The one component that the host creates: everything that the host wants of this system arrives
/// here, at the positions of `IPlugin3` or as a numbered event of `IPlugin4`.
///
/// It routes and decides nothing: each call is forwarded, in a fixed order, to the input side, the
/// output factory, the sync manager and the packet reader. All calls come on the host's thread, and
/// the host alone decides their order. Nothing is caught and nothing rolled back: what a call meets
/// in its middle goes to the host as it is.
///
/// The object may be a part of another one (`outer`), whose count and interfaces then are its own.
class Plugin final : public PluginPositions,
                     public WithoutLateBinding<IPlugin4>,
                     private CountedObject {
  public:
    /// A new object with one reference, of its own network and clock. `outer` is null or outlives
    /// it. The result answers for the object itself also where it is a part of another.
    static HostObject* create(HostObject* outer);
    /// The same over a capture port and a counter that aren't owned and outlive it.
    static HostObject* create(HostObject* outer, CapturePort& port,
                              const PerformanceCounter& counter);

    HostResult queryInterface(const InterfaceId& interfaceId, void** result) override;
    std::uint32_t addRef() override;
    std::uint32_t release() override;

    HostResult onConnectHost(HostApp* hostApp) override;
    HostResult onStartAcquisition() override;
    HostResult onPrepareAcquisition() override;
    HostResult onGetData() override;
    HostResult onClearSetup() override;
    HostResult onDisconnectChannels() override;

    HostResult position32(std::uint16_t* hasMaster) override;
    HostResult position33(std::uint32_t* low, std::uint32_t* high) override;

    HostResult onEvent(std::int32_t event, const HostVariant& input, HostVariant* result) override;

  private:
    friend class PluginEvents;

    /// The object as it is by itself, whichever object it is a part of.
    class Inner final : public HostObject {
      public:
        explicit Inner(Plugin& owner) : plugin(owner) {}
        HostResult queryInterface(const InterfaceId& interfaceId, void** result) override;
        std::uint32_t addRef() override { return plugin.addReference(); }
        std::uint32_t release() override;

      private:
        Plugin& plugin;
    };

    Plugin(HostObject* outerObject, CapturePort& port, const PerformanceCounter& counter);
    ~Plugin() = default;

    HostResult checkVersion();
    CountedRef<HostPluginGroup> getPluginGroup();
    void releaseChannels();
    void rebuildChannels();
    bool hasActiveChannels();

    Inner inner;
    HostObject* const outer;  ///< `inner`, or the object that this one is a part of; not counted
    CountedRef<HostApp> host;
    CountedRef<HostPluginGroup> outputGroup;  ///< keeps what `outputFactory` doesn't count
    InputManagerImpl inputManager;
    OutputFactoryImpl outputFactory;
    CmpPluginCore core;
    CaptureFacts facts;
    TrafficFacts traffic;
    ReceptionFacts reception;
    FrameTap frames;
    InterfaceChoice interfaces;
    ModuleOperations modules;
};
