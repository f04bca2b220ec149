#include <string>

#include "fuzz/require.h"
#include "station/document/setup_check.h"
#include "station/document/setup_losses.h"
#include "station/document/setup_xml.h"

// The text of a setup file. What is read as a setup is written, read again, and then the same byte
// for byte.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    CountedRef<station::SetupElement> root;
    try {
        root = station::fromSetupXml(text);
    } catch (const station::SetupXmlError& error) {
        require(error.getLine() >= 1 && error.getColumn() >= 1, "a fault has no place");
        return 0;
    }
    const auto bare = makeObject<station::SetupElement>(L"Setup", L"");
    for (const auto& faults :
         {station::findSetupFaults(*root), station::findUnreadable(*root),
          station::findLosses(*root, *root), station::findLosses(*root, *bare)}) {
        for (const std::string& fault : faults) {
            require(fault.starts_with("line ") && fault[5] != '0', "a fault has no line");
        }
    }
    const std::string written = station::toSetupXml(*root);
    require(station::toSetupXml(*station::fromSetupXml(written)) == written,
            "what was written is read as something else");
    return 0;
}
