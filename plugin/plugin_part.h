#pragma once

#include "host/host_object.h"

/// An interface of the plug-in beside those that every host knows: an object that lives in the
/// plug-in and is counted with it.
template <typename Interface>
class PluginPart : public Interface {
  public:
    explicit PluginPart(HostObject& plugin) : whole(plugin) {}
    PluginPart(const PluginPart&) = delete;
    PluginPart& operator=(const PluginPart&) = delete;

    HostResult queryInterface(const InterfaceId& interfaceId, void** result) override {
        return whole.queryInterface(interfaceId, result);
    }
    std::uint32_t addRef() override { return whole.addRef(); }
    std::uint32_t release() override { return whole.release(); }

  protected:
    ~PluginPart() = default;

  private:
    HostObject& whole;
};
