#pragma once

#include "host/host_error.h"
#include "host/plugin.h"

/// `HostDispatch` of an object whose host calls it directly.
template <typename Interface>
class WithoutLateBinding : public Interface {
  public:
    HostResult getTypeInfoCount(std::uint32_t* count) override {
        *count = 0;
        return HostCode::success;
    }
    HostResult getTypeInfo(std::uint32_t, std::uint32_t, HostObject**) override {
        return HostCode::notImplemented;
    }
    HostResult getIdsOfNames(const wchar_t* const*, std::uint32_t, std::uint32_t,
                             std::int32_t*) override {
        return HostCode::notImplemented;
    }
    HostResult invoke(std::int32_t, std::uint32_t, std::uint16_t, const HostVariant*, std::uint32_t,
                      HostVariant*) override {
        return HostCode::notImplemented;
    }

  protected:
    ~WithoutLateBinding() = default;
};

/// The operations of `IPlugin3` that have no name, with the answers that hosts rely on.
class PluginPositions : public WithoutLateBinding<IPlugin3> {
  public:
    HostResult position3() override { return HostCode::success; }
    HostResult position5() override { return HostCode::success; }
    HostResult position7() override { return HostCode::success; }
    HostResult position8() override { return HostCode::success; }
    HostResult position9() override { return HostCode::success; }
    HostResult position10() override { return HostCode::success; }
    HostResult position11() override { return HostCode::success; }
    HostResult position14(void*, std::uint16_t* answer) override { return write(answer, 1); }
    HostResult position15() override { return HostCode::success; }
    HostResult position16() override { return HostCode::success; }
    HostResult position17(std::uint16_t* answer) override { return write(answer, 1); }
    HostResult position18() override { return HostCode::success; }
    HostResult position19() override { return HostCode::success; }
    HostResult position20() override { return onStartAcquisition(); }
    HostResult position21() override { return HostCode::success; }
    HostResult position22() override { return HostCode::success; }
    HostResult position23() override { return HostCode::success; }
    HostResult position24() override { return HostCode::success; }
    HostResult position25() override { return HostCode::success; }
    HostResult position26() override { return HostCode::success; }
    HostResult position27() override { return HostCode::success; }
    HostResult position28() override { return HostCode::success; }
    HostResult position29(std::int32_t* answer) override { return write(answer, 7); }
    HostResult position30() override { return onGetData(); }
    HostResult position31() override { return HostCode::success; }
    HostResult position34() override { return HostCode::success; }
    HostResult position35() override { return HostCode::success; }
    HostResult position36() override { return HostCode::success; }
    HostResult position37() override { return HostCode::success; }
    HostResult position38(void*, std::uint16_t* answer) override { return write(answer, 1); }
    HostResult position39() override { return HostCode::success; }

  protected:
    ~PluginPositions() = default;

  private:
    template <typename Number>
    static HostResult write(Number* place, int answer) {
        *place = static_cast<Number>(answer);
        return HostCode::success;
    }
};
