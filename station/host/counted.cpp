#include "station/host/counted.h"

#include "core/string_helper.h"

namespace station {
namespace {

class ErrorInfo final : public Counted<HostErrorInfo> {
  public:
    explicit ErrorInfo(std::wstring text) : description(std::move(text)) {}

    HostResult getDescription(std::wstring* result) override { return give(result, description); }
    HostResult getSource(std::wstring* source) override { return give(source, L"cmp-station"); }

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
