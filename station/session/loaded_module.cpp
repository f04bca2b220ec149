#include "station/session/loaded_module.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include "station/errors.h"

namespace station {

/// By the name without links, as the module itself is to know where it is.
void* loadModule(const std::filesystem::path& file, TrustedUsers trusted, const char* what) {
    const auto fail = [&](const std::string& cause) {
        throw PluginError(fmt::format("can't load the {} {}: {}", what, file.string(), cause));
    };
    const TrustedPath found(std::filesystem::absolute(file), trusted);
    std::error_code error;
    if (!found.refusal().empty()) {
        fail(found.refusal());
    }
    if (!found.isFile()) {
        fail(std::filesystem::exists(file, error) ? "it is no file" : "there is no such file");
    }
    void* const handle = ::dlopen(found.resolved().c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        fail(::dlerror());
    }
    return handle;
}

std::filesystem::path programFolder() {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
}

}  // namespace station
