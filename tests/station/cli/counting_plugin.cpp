// The plug-in in a module that keeps the numbers of the events that its host sends it.

#include <vector>

#include "host/implements.h"
#include "plugin/identity.h"
#include "plugin/module.h"
#include "plugin/plugin.h"
#include "plugin/plugin_positions.h"

namespace {

std::vector<std::int32_t> seenEvents;

/// Has the plug-in as a part of itself, and stands in front of its events.
class CountingPlugin final : public Implements<WithoutLateBinding<IPlugin4>> {
  public:
    HostResult queryInterface(const InterfaceId& interfaceId, void** result) override {
        const bool isPart = interfaceId != HostObject::id && interfaceId != IPlugin4::id;
        return isPart ? part->queryInterface(interfaceId, result)
                      : Implements::queryInterface(interfaceId, result);
    }
    HostResult onEvent(std::int32_t event, const HostVariant& input, HostVariant* result) override {
        seenEvents.push_back(event);
        void* events = nullptr;
        part->queryInterface(IPlugin4::id, &events);
        return CountedRef<IPlugin4>::adopt(static_cast<IPlugin4*>(events))
            ->onEvent(event, input, result);
    }

  private:
    const CountedRef<HostObject> part = CountedRef<HostObject>::adopt(Plugin::create(this));
};

class CountingFactory final : public Implements<HostClassFactory> {
  public:
    HostResult createInstance(HostObject*, const InterfaceId& interfaceId, void** result) override {
        return makeObject<CountingPlugin>()->queryInterface(interfaceId, result);
    }
    HostResult lockServer(HostBool) override { return HostCode::success; }
};

}  // namespace

HostResult DllGetClassObject(const InterfaceId& classId, const InterfaceId& interfaceId,
                             void** result) {
    return classId == PluginIdentity::classId
               ? makeObject<CountingFactory>()->queryInterface(interfaceId, result)
               : HostCode::classNotAvailable;
}

/// Those since the last call.
extern "C" void takeEvents(std::vector<std::int32_t>* events);
extern "C" void takeEvents(std::vector<std::int32_t>* events) {
    *events = std::exchange(seenEvents, {});
}
