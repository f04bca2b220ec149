#pragma once

#include <cstddef>

#include "host/host_variant.h"
#include "tests/support/scripted_object.h"

/// The array of an event's input. Its elements' objects are the test's own.
class ScriptedVariantArray final : public Scripted<HostVariantArray> {
  public:
    explicit ScriptedVariantArray(CallScript& callScript, std::vector<HostVariant> values,
                                  std::int32_t firstIndex = 0)
        : Scripted(callScript), elements(std::move(values)), firstIndexOfArray(firstIndex) {}

    HostResult getBounds(std::int32_t* first, std::int32_t* last) override {
        const std::int32_t end = firstIndexOfArray + static_cast<std::int32_t>(elements.size());
        return act("getBounds",
                   [&] { std::tie(*first, *last) = std::pair(firstIndexOfArray, end - 1); });
    }
    /// Throws for an index outside the bounds.
    HostResult getElement(std::int32_t index, HostVariant* element) override {
        const auto place = static_cast<std::size_t>(index - firstIndexOfArray);
        return get({"getElement", index}, element, elements.at(place));
    }
    SCRIPTED_OBJECT(copy, HostVariantArray,
                    &script.make<ScriptedVariantArray>(elements, firstIndexOfArray))

  private:
    std::vector<HostVariant> elements;
    std::int32_t firstIndexOfArray;
};

inline HostVariant variantOf(HostObject* object) {
    return {.type = HostVariantType::Object, .object = object};
}
inline HostVariant variantOf(bool value) {
    return {.type = HostVariantType::Boolean, .boolean = toHostBool(value)};
}
inline HostVariant variantOf(HostVariantArray& array) {
    return {.type = HostVariantType::VariantArray, .variants = &array};
}
