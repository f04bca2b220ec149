#include <array>
#include <exception>
#include <memory>
#include <type_traits>
#include <utility>

#include "core/string_helper.h"
#include "host/host_document.h"
#include "host/host_error.h"
#include "host/host_variant.h"
#include "plugin/plugin.h"
#include "setup/kestrova_kcom_node.h"
#include "ui/settings_window.h"
#include "ui/setup_window.h"

// The numbered events. Those without a name are answered alike always.

/// One function for each event that is handled. Where a result's type is said to be kept, the
/// payload alone is written: the host has set the type.
class PluginEvents {
  public:
    using Handler = HostResult (*)(Plugin&, const HostVariant&, HostVariant*);

    static constexpr std::int32_t first = 105;
    static constexpr std::int32_t last = 186;

    static Handler find(std::int32_t event) {
        static const auto handlers = table();
        return event < first || event > last ? nullptr
                                             : handlers[static_cast<std::size_t>(event - first)];
    }

  private:
    using Handlers = std::array<Handler, last - first + 1>;
    using NodePtr = std::shared_ptr<Kestrova::Utils::Serialization::Node>;

    static Handlers table() {
        Handlers handlers{};
        const auto on = [&](std::int32_t event, Handler handler) {
            handlers[static_cast<std::size_t>(event - first)] = handler;
        };
        on(PluginEvent::startCapture, startRead);
        on(PluginEvent::hasMaster, hasMaster);
        on(PluginEvent::hasMasterToo, hasMaster);
        on(110, alwaysTrue);
        on(PluginEvent::channelsCameOrWent, dropStaleInputs);
        on(113, nothing);
        on(PluginEvent::alignChannels, alignAndRefresh);
        on(PluginEvent::getData, getData);
        on(PluginEvent::claimChannels, claimChannels);
        on(120, nothing);
        on(PluginEvent::rebindInputs, rebindInputs);
        on(PluginEvent::startSetupRead, startSetupRead);
        on(PluginEvent::removeHostChannel, removeHostChannel);
        on(PluginEvent::channelsWent, dropStaleInputs);
        on(PluginEvent::channelsChanged, notifyInputs);
        on(PluginEvent::getRequiredDelay, requiredDelay);
        on(154, nothing);
        on(155, nothing);
        on(PluginEvent::enableClocks, enableClocks);
        on(PluginEvent::checkArray, checkArray);
        on(PluginEvent::setup, setup);
        on(PluginEvent::settings, settings);
        on(169, alwaysOne);
        on(173, alwaysFalse);
        on(PluginEvent::updateDevices, updateDevices);
        on(178, alwaysThree);
        on(PluginEvent::showChannels, makeWindow<&CmpPluginCore::setupWindow>);
        on(PluginEvent::closeChannels, closeSetupWindow);
        on(PluginEvent::showModules, makeWindow<&CmpPluginCore::settingsWindow>);
        on(PluginEvent::closeModules, closeSettingsWindow);
        on(PluginEvent::showChannelsToo, makeWindow<&CmpPluginCore::setupWindow>);
        on(PluginEvent::endOfSetup, endOfSetup);
        return handlers;
    }

    /// Empty for null and for a value of another kind.
    static CountedRef<HostObject> objectOf(const HostVariant& value) {
        return CountedRef<HostObject>(value.type == HostVariantType::Object ? value.object
                                                                            : nullptr);
    }

    static void answer(HostVariant* result, bool value) {
        result->type = HostVariantType::Boolean;
        result->boolean = toHostBool(value);
    }

    static HostResult nothing(Plugin&, const HostVariant&, HostVariant*) {
        return HostCode::success;
    }

    static HostResult startRead(Plugin& plugin, const HostVariant&, HostVariant*) {
        plugin.core.packetReader.stopFreeze();
        plugin.core.packetReader.openAndStartRead();
        return HostCode::success;
    }

    static HostResult startSetupRead(Plugin& plugin, const HostVariant&, HostVariant*) {
        plugin.core.packetReader.Stop();
        plugin.core.packetReader.startSetupRead();
        return HostCode::success;
    }

    static HostResult hasMaster(Plugin& plugin, const HostVariant&, HostVariant* result) {
        answer(result, plugin.core.syncManager.HasMaster());
        return HostCode::success;
    }

    static HostResult alwaysTrue(Plugin&, const HostVariant&, HostVariant* result) {
        result->boolean = hostTrue;
        return HostCode::success;
    }

    static HostResult alwaysOne(Plugin&, const HostVariant&, HostVariant* result) {
        result->boolean = 1;
        return HostCode::success;
    }

    static HostResult alwaysFalse(Plugin&, const HostVariant&, HostVariant* result) {
        answer(result, false);
        return HostCode::success;
    }

    static HostResult alwaysThree(Plugin&, const HostVariant&, HostVariant* result) {
        result->uint32 = 3;
        return HostCode::success;
    }

    static HostResult dropStaleInputs(Plugin& plugin, const HostVariant&, HostVariant*) {
        plugin.inputManager.dropStaleAndNotify();
        return HostCode::success;
    }

    static HostResult notifyInputs(Plugin& plugin, const HostVariant&, HostVariant*) {
        plugin.inputManager.sendSecondNotification();
        return HostCode::success;
    }

    static HostResult rebindInputs(Plugin& plugin, const HostVariant&, HostVariant*) {
        plugin.inputManager.rebindChannels();
        return HostCode::success;
    }

    static HostResult alignAndRefresh(Plugin& plugin, const HostVariant&, HostVariant*) {
        if (plugin.hasActiveChannels()) {
            plugin.inputManager.alignReadPosition();
            plugin.outputFactory.refreshAddData();
        }
        return HostCode::success;
    }

    /// Active inputs alone don't count here.
    static HostResult getData(Plugin& plugin, const HostVariant&, HostVariant*) {
        return plugin.outputFactory.hasActiveChannels() ? plugin.onGetData() : HostCode::success;
    }

    static HostResult claimChannels(Plugin& plugin, const HostVariant& input, HostVariant*) {
        const auto list = queryHost<HostChannelList>(objectOf(input));
        if (!list) {
            return HostCode::notHandled;
        }
        if (plugin.hasActiveChannels()) {
            plugin.outputFactory.claimChannels();
            plugin.inputManager.claimChannels(list);
        }
        return HostCode::success;
    }

    static HostResult removeHostChannel(Plugin& plugin, const HostVariant& input, HostVariant*) {
        const auto channel = queryHost<HostChannel>(objectOf(input));
        plugin.inputManager.removeHostChannel(channel.get());
        return HostCode::success;
    }

    static HostResult requiredDelay(Plugin& plugin, const HostVariant&, HostVariant* result) {
        result->type = HostVariantType::Float;
        result->float32 = plugin.core.syncManager.GetRequiredDelay();
        return HostCode::success;
    }

    static HostResult enableClocks(Plugin& plugin, const HostVariant&, HostVariant*) {
        plugin.core.syncManager.EnableClocks();
        return HostCode::success;
    }

    static HostResult updateDevices(Plugin& plugin, const HostVariant& input, HostVariant*) {
        const auto devices = queryHost<HostGnssDeviceCollection>(objectOf(input));
        plugin.core.syncManager.UpdateDevices(devices.get());
        return HostCode::success;
    }

    /// The window that there was goes when the new one is there, and stays if that fails.
    template <auto window>
    static HostResult makeWindow(Plugin& plugin, const HostVariant& input, HostVariant*) {
        using Window =
            typename std::remove_reference_t<decltype(plugin.core.*window)>::element_type;
        try {
            auto made = Kestrova::Tessel::KVWindow::make<Window>(
                Kestrova::Tessel::hostWindow(objectOf(input).get()), plugin.core);
            std::swap(plugin.core.*window, made);
            return HostCode::success;
        } catch (const std::exception& failure) {
            const auto text = Kestrova::Utils::Kcom::StringHelper::ToWide(failure.what());
            callHost(plugin.host, &HostApp::writeError, text.c_str());
            return HostCode::failed;
        }
    }

    static HostResult closeSetupWindow(Plugin& plugin, const HostVariant&, HostVariant*) {
        plugin.core.setupWindow.reset();
        return HostCode::success;
    }

    static HostResult closeSettingsWindow(Plugin& plugin, const HostVariant&, HostVariant*) {
        plugin.core.settingsWindow.reset();
        return HostCode::success;
    }

    static HostResult endOfSetup(Plugin& plugin, const HostVariant&, HostVariant*) {
        plugin.inputManager.sendSecondNotification();
        plugin.inputManager.dropStaleInputs();
        plugin.outputFactory.claimChannels(plugin.hasActiveChannels());
        plugin.core.setupWindow.reset();
        return HostCode::success;
    }

    // Events 157 to 159 bring an array.

    /// A copy of the event's array, of whose elements none is outside the bounds.
    class Arguments {
      public:
        explicit Arguments(const HostVariant& input) {
            if (input.type != HostVariantType::VariantArray || input.variants == nullptr) {
                throw HostArrayException(HostCode::invalidArgument);
            }
            checkHost(input.variants->copy(array.out()), input.variants);
            if (!array) {
                raiseHostError(HostCode::failed);
            }
        }

        HostVariant at(std::int32_t index) const {
            std::int32_t firstIndex = 0;
            std::int32_t lastIndex = -1;
            callHost(array, &HostVariantArray::getBounds, &firstIndex, &lastIndex);
            if (index < firstIndex || index > lastIndex) {
                throw HostArrayException(HostCode::invalidArgument);
            }
            return hostValue(array, &HostVariantArray::getElement, index);
        }
        CountedRef<HostObject> objectAt(std::int32_t index) const { return objectOf(at(index)); }
        bool isTrueAt(std::int32_t index) const { return isTrue(at(index).boolean); }

        /// A node over the document and the element of the first two, with the direction of the
        /// third. A statement for each, so that they are read in their order whatever the compiler.
        NodePtr makeNode() const {
            auto document = queryHost<HostDocument>(objectAt(0));
            auto element = queryHost<HostElement>(objectAt(1));
            auto node = std::make_shared<Kestrova::Utils::Kcom::KestrovaKCOMNodeCreator>(
                std::move(document), std::move(element));
            node->SetWriting(isTrueAt(2));
            return node;
        }

      private:
        CountedRef<HostVariantArray> array;
    };

    static HostResult checkArray(Plugin&, const HostVariant& input, HostVariant*) {
        const Arguments arguments(input);
        arguments.at(0);
        arguments.at(0);
        return HostCode::success;
    }

    static HostResult setup(Plugin& plugin, const HostVariant& input, HostVariant* result) {
        const Arguments arguments(input);
        const NodePtr node = arguments.makeNode();
        runSetup(plugin, node, arguments.isTrueAt(3));
        answerDone(result);
        return HostCode::success;
    }

    static HostResult settings(Plugin& plugin, const HostVariant& input, HostVariant* result) {
        const NodePtr node = Arguments(input).makeNode();
        if (node->IsValid()) {
            if (node->IsWriting()) {
                plugin.core.syncManager.Save(*node);
                plugin.core.packetReader.saveDevices(*node);
            } else {
                plugin.core.syncManager.Load(*node);
                plugin.core.packetReader.loadDevices(*node);
            }
        }
        answerDone(result);
        return HostCode::success;
    }

    static void answerDone(HostVariant* result) {
        result->type = HostVariantType::UnsignedInt;
        result->uint32 = 1;
    }

    static void runSetup(Plugin& plugin, const NodePtr& node, bool keepChannels) {
        if (node->IsWriting()) {
            if (node->IsValid()) {
                saveSetup(plugin, node);
            }
            return;
        }
        plugin.releaseChannels();
        if (node->IsValid()) {
            loadSetup(plugin, node);
        } else if (!keepChannels) {
            plugin.rebuildChannels();
        }
    }

    static void saveSetup(Plugin& plugin, const NodePtr& node) {
        plugin.inputManager.saveSetup(node);
        plugin.outputFactory.saveSetup(node);
        plugin.core.packetReader.saveChannels(*node);
    }

    static void loadSetup(Plugin& plugin, const NodePtr& node) {
        plugin.outputFactory.beginLoadSetup();
        plugin.inputManager.loadSetup(node);
        plugin.outputFactory.loadSetup(node);
        plugin.core.packetReader.loadChannels(*node);
        plugin.outputFactory.endLoadSetup();
    }
};

HostResult Plugin::onEvent(std::int32_t event, const HostVariant& input, HostVariant* result) {
    const PluginEvents::Handler handler = PluginEvents::find(event);
    return handler != nullptr ? handler(*this, input, result) : HostCode::notHandled;
}
