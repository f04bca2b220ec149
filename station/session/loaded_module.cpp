#include "station/session/loaded_module.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include "station/errors.h"

namespace station {

/// By the name without links, which none but the trusted users can make lead elsewhere. Not by the
/// descriptor of what was judged: a module finds itself (for its registration) and what it needs
/// beside it ($ORIGIN) by the name that it was loaded by, and the loader would take two modules
/// that had one descriptor after the other for one. So it is looked at once more instead.
void* loadModule(const std::filesystem::path& file, TrustedUsers trusted, const char* what) {
    const auto fail = [&](const std::string& cause) {
        throw PluginError(fmt::format("can't load the {} {}: {}", what, file.string(), cause));
    };
    const TrustedPath found(std::filesystem::absolute(file), trusted);
    std::error_code error;
    if (!found.getRefusal().empty()) {
        fail(found.getRefusal());
    }
    if (!found.isFile()) {
        fail(std::filesystem::exists(file, error) ? "it is no file" : "there is no such file");
    }
    void* const handle = ::dlopen(found.getResolved().c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        fail(::dlerror());
    }
    if (!found.isStillThere()) {
        fail("it was exchanged while it was loaded; start again");
    }
    return handle;
}

void* findInOwnModule(const char* fileName, const char* function, const char* what) {
    std::error_code error;
    std::filesystem::path path = programFolder() / fileName;
    if (!std::filesystem::exists(path, error)) {
        path = std::filesystem::path(CMP_LIBRARY_FOLDER) / fileName;
    }
    void* const found = ::dlsym(loadModule(path, TrustedUsers::UserAndProgram, what), function);
    if (found == nullptr) {
        throw PluginError(fmt::format("can't load the {} {}: it is another one, without {}", what,
                                      path.string(), function));
    }
    return found;
}

std::filesystem::path programFolder() {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
}

}  // namespace station
