#pragma once

#include "setup/xml_exception.h"

/// The code of the `XmlException` that `action` raises; -1 if it raises none.
template <typename Action>
std::int32_t codeOf(Action action) {
    try {
        action();
    } catch (const Kestrova::Utils::Serialization::XmlException& error) {
        return error.GetCode();
    }
    return -1;
}
