#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/plugin.h"
#include "plugin/cmp_plugin_core.h"
#include "plugin/plugin_part.h"

/// What the plug-in counts, as hosts may ask for it.
class CaptureFacts final : public PluginPart<CaptureStatistics> {
  public:
    CaptureFacts(HostObject& plugin, CmpPluginCore& pluginCore)
        : PluginPart(plugin), core(pluginCore) {}

    HostResult getDroppedFrames(std::uint64_t* frames) override;
    HostResult getChannels(ChannelStatistics* channels, std::uint32_t* count) override;
    HostResult getClocks(ClockStatistics* clocks, std::uint32_t* count) override;

  private:
    CmpPluginCore& core;
};

/// What the plug-in reads from the network, the same way.
class TrafficFacts final : public PluginPart<CaptureTraffic> {
  public:
    TrafficFacts(HostObject& plugin, CmpPluginCore& pluginCore)
        : PluginPart(plugin), core(pluginCore) {}

    HostResult getInterfaces(std::vector<InterfaceStatistics>* interfaces) override;
    HostResult getMessages(MessageStatistics* messages) override;
    HostResult getModules(std::vector<ModuleStatistics>* modules) override;

  private:
    CmpPluginCore& core;
};

/// What it lacks.
class ReceptionFacts final : public PluginPart<CaptureReception> {
  public:
    ReceptionFacts(HostObject& plugin, CmpPluginCore& pluginCore)
        : PluginPart(plugin), core(pluginCore) {}

    HostResult getReceived(std::vector<ReceivedStatistics>* interfaces) override;
    HostResult getSenders(std::vector<SenderStatistics>* senders) override;

  private:
    CmpPluginCore& core;
};

/// The frames themselves, for hosts that want them.
class FrameTap final : public PluginPart<CaptureFrames> {
  public:
    FrameTap(HostObject& plugin, CmpPluginCore& pluginCore)
        : PluginPart(plugin), core(pluginCore) {}

    HostResult setSink(FrameSink* sink) override;
    HostResult getSources(std::vector<std::wstring>* names) override;

  private:
    CmpPluginCore& core;
};

/// The network interfaces, as hosts may choose among them.
class InterfaceChoice final : public PluginPart<CaptureSelection> {
  public:
    InterfaceChoice(HostObject& plugin, CmpPluginCore& pluginCore)
        : PluginPart(plugin), core(pluginCore) {}

    HostResult getInterfaces(std::vector<std::wstring>* names) override;
    HostResult selectInterfaces(const wchar_t* const* names, std::uint32_t count) override;
    HostResult takeMessages(std::vector<InterfaceMessage>* messages) override;

  private:
    CmpPluginCore& core;
};
