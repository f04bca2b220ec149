#include "station/host/variant_array.h"

namespace station {

VariantArray& VariantArray::addObject(HostObject* object) {
    HostVariant element;
    element.type = HostVariantType::Object;
    element.object = object;
    objects.emplace_back(object);
    elements.push_back(element);
    return *this;
}

VariantArray& VariantArray::addBoolean(bool value) {
    HostVariant element;
    element.type = HostVariantType::Boolean;
    element.boolean = toHostBool(value);
    elements.push_back(element);
    return *this;
}

VariantArray& VariantArray::addText(std::wstring value) {
    texts.push_back(std::move(value));
    HostVariant element;
    element.type = HostVariantType::Text;
    element.text = texts.back().c_str();
    elements.push_back(element);
    return *this;
}

HostResult VariantArray::getBounds(std::int32_t* first, std::int32_t* last) {
    *first = 0;
    *last = static_cast<std::int32_t>(elements.size()) - 1;
    return HostCode::success;
}

HostResult VariantArray::getElement(std::int32_t index, HostVariant* element) {
    if (index < 0 || static_cast<std::size_t>(index) >= elements.size()) {
        return fail(HostCode::invalidArgument, "there is no such element in the array");
    }
    *element = elements[static_cast<std::size_t>(index)];
    return HostCode::success;
}

HostResult VariantArray::copy(HostVariantArray** result) {
    return guarded([&] {
        const auto made = makeObject<VariantArray>();
        for (const HostVariant& element : elements) {
            switch (element.type) {
                case HostVariantType::Object:
                    made->addObject(element.object);
                    break;
                case HostVariantType::Text:
                    made->addText(element.text);
                    break;
                default:
                    made->elements.push_back(element);
            }
        }
        return handOver(made, result);
    });
}

HostVariant VariantArray::asInput() {
    HostVariant input;
    input.type = HostVariantType::VariantArray;
    input.variants = this;
    return input;
}

}  // namespace station
