#include "station/host/host_failure.h"

#include "core/string_helper.h"
#include "station/host/counted.h"

namespace station {
namespace {

class ErrorInfo final : public Counted<HostErrorInfo> {
  public:
    explicit ErrorInfo(std::wstring text) : description(std::move(text)) {}

    HostResult getDescription(std::wstring* result) override {
        *result = description;
        return HostCode::success;
    }
    HostResult getSource(std::wstring* source) override {
        *source = L"cmp-station";
        return HostCode::success;
    }

  private:
    const std::wstring description;
};

thread_local CountedRef<HostErrorInfo> current;

}  // namespace

HostResult fail(HostResult code, const std::string& text) {
    const auto info = makeObject<ErrorInfo>(Kestrova::Utils::Kcom::StringHelper::ToWide(text));
    current = CountedRef<HostErrorInfo>(info.get());
    return code;
}

CountedRef<HostErrorInfo> takeFailure() {
    return std::exchange(current, {});
}

}  // namespace station
