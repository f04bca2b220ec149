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
        const HostResult code = call("getBounds");
        if (code >= 0) {
            *first = firstIndexOfArray;
            *last = firstIndexOfArray + static_cast<std::int32_t>(elements.size()) - 1;
        }
        return code;
    }
    HostResult getElement(std::int32_t index, HostVariant* element) override {
        const HostResult code = call("getElement", index);
        if (code < 0) {
            return code;
        }
        const std::int64_t place = std::int64_t{index} - firstIndexOfArray;
        if (place < 0 || place >= static_cast<std::int64_t>(elements.size())) {
            return HostCode::invalidArgument;
        }
        *element = elements[static_cast<std::size_t>(place)];
        return code;
    }
    SCRIPTED_OBJECT(copy, HostVariantArray,
                    &script.make<ScriptedVariantArray>(elements, firstIndexOfArray))

    std::vector<HostVariant> elements;

  private:
    std::int32_t firstIndexOfArray;
};

inline HostVariant variantOf(HostObject* object) {
    HostVariant variant;
    variant.type = HostVariantType::Object;
    variant.object = object;
    return variant;
}

inline HostVariant variantOf(bool value) {
    HostVariant variant;
    variant.type = HostVariantType::Boolean;
    variant.boolean = toHostBool(value);
    return variant;
}

inline HostVariant variantOf(HostVariantArray& array) {
    HostVariant variant;
    variant.type = HostVariantType::VariantArray;
    variant.variants = &array;
    return variant;
}
