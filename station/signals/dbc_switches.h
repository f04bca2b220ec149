#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "station/signals/database.h"
#include "station/signals/definition_text.h"

namespace station {

/// What a reader of a .dbc remembers of a message beside its definition.
struct DbcMessageNotes {
    std::size_t line = 0;
    std::vector<std::size_t> signalLines;
    std::unordered_map<std::string, std::size_t> signals;  ///< by name
    bool hasCycle = false;
};

/// Finds the switch of each signal of that message that depends on one, once all is read. Fails by
/// the text for one that isn't there, depends on itself, or is one too many.
void connectSwitches(Database& database, std::size_t index, const DbcMessageNotes& notes,
                     DefinitionText& text);

}  // namespace station
