#include "station/host/plugin_failure.h"

#include <fmt/format.h>

#include "core/kvrt_exception.h"
#include "core/string_helper.h"
#include "host/host_error.h"

namespace station {
namespace {

std::string toText(const HostCallException& failure) {
    std::wstring description;
    if (const auto& info = failure.getErrorInfo()) {
        info->getDescription(&description);
    }
    const std::string text = Kestrova::Utils::Kcom::StringHelper::ToUtf8(description);
    return fmt::format("a call of the host failed with code 0x{:08X}{}{}",
                       static_cast<std::uint32_t>(failure.getCode()), text.empty() ? "" : ": ",
                       text);
}

}  // namespace

std::string describeCurrentFailure() {
    try {
        throw;
    } catch (const HostCallException& failure) {
        return toText(failure);
    } catch (const HostArrayException& failure) {
        return fmt::format("an array of the host isn't as it must be, code 0x{:08X}",
                           static_cast<std::uint32_t>(failure.getCode()));
    } catch (const Kestrova::RT::Core::KvrtException& failure) {
        return fmt::format("{} (code 0x{:08X})", failure.what(), failure.getCode());
    } catch (const std::exception& failure) {
        return failure.what();
    } catch (...) {
        return "an exception of an unknown kind";
    }
}

}  // namespace station
