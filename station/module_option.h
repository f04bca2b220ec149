#pragma once

#include <cstdint>
#include <string>

namespace station {

/// A capture module as the command line names it: "TYPE:CONFIGID[:NAME]".
struct ModuleOption {
    std::string type;  ///< as the user wrote it
    std::uint16_t configId = 0;
    std::string name;  ///< empty: the type's own

    /// Throws CommandError for a text of another form. CONFIGID is decimal, or hexadecimal after
    /// "0x". Whether the type exists is for the caller to say.
    static ModuleOption parse(const std::string& text);
};

}  // namespace station
