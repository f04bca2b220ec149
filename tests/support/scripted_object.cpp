#include "tests/support/scripted_object.h"

#include <array>
#include <charconv>

namespace scripted_text {
namespace {

template <typename T>
std::string shortest(T value) {
    std::array<char, 64> text = {};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
    return {text.data(), end};
}

}  // namespace

std::string tell(double value) {
    return shortest(value);
}

std::string tell(float value) {
    return shortest(value);
}

std::string tell(const std::vector<std::int32_t>& numbers) {
    std::string text;
    for (const std::int32_t number : numbers) {
        text += (text.empty() ? "" : " ") + std::to_string(number);
    }
    return '[' + text + ']';
}

std::string tell(const HostVariant& value) {
    return "variant of type " + std::to_string(static_cast<std::uint16_t>(value.type));
}

}  // namespace scripted_text

ScriptedObject::ScriptedObject(CallScript& scriptToKeep, std::string kindOfObject)
    : kind(std::move(kindOfObject)), script(scriptToKeep) {
    script.attend(this);
}

ScriptedObject::~ScriptedObject() {
    script.leave(this);
}

std::string ScriptedObject::referenceFault() const {
    if (overReleased) {
        return "released once too often";
    }
    const std::int64_t kept = referenceCount;
    return kept == 0   ? ""
           : kept == 1 ? "1 reference kept"
                       : std::to_string(kept) + " references kept";
}

std::uint32_t ScriptedObject::addReference() {
    return static_cast<std::uint32_t>(++referenceCount);
}

std::uint32_t ScriptedObject::dropReference() {
    const std::int64_t left = --referenceCount;
    if (left < 0) {
        overReleased = true;
    }
    return left < 0 ? 0 : static_cast<std::uint32_t>(left);
}

void* ScriptedObject::findPart(const InterfaceId& interfaceId) const {
    for (const Part& part : parts) {
        if (part.interfaceId == interfaceId) {
            part.object->addRef();
            return part.pointer;
        }
    }
    return nullptr;
}
