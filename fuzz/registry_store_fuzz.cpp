#include <fstream>
#include <string>

#include "core/registry_store.h"
#include "fuzz/require.h"
#include "tests/support/temporary_folder.h"

// The file of a registered plug-in's values. What is read from it is written, and read again the
// same.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const TemporaryFolder folder;
    static const RegistryStore store(folder.path());
    static const std::filesystem::path key = folder.path() / "Plugins" / "One";
    std::filesystem::create_directories(key);
    std::ofstream(key / "values", std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    const auto values = store.read("Plugins\\One");
    if (values) {
        require(store.write("Plugins\\One", *values), "values can't be written");
        require(store.read("Plugins\\One") == values, "values are read as others");
    }
    return 0;
}
