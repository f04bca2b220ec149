#include "setup/xml_exception.h"

#include <array>
#include <cstddef>

namespace Kestrova::Utils::Serialization {

const char* XmlException::what() const noexcept {
    static constexpr std::array texts = {
        "Node does not contain expected type!",
        "Node you want to read does not exist!",
        "KCOM index size is limited to values of long type!",
        "Values you can write to KCOM node are limited to values of long type!",
        "Value is out of range!",
        "Inner node is not initialized!",
        "KCOM document is not set!",
        "Node in function argument is nullptr!",
        "Document in function argument is nullptr!",
        "File name is not set!",
        "Failure when opening a file!",
        "Failure when reading a buffer from a file!",
        "Failure when parsing Xml file!",
        "Parameter is a dummy node!",
    };
    const auto place = static_cast<std::size_t>(code);
    return code >= 0 && place < texts.size() ? texts[place] : "XmlExceptionCode is not set!";
}

}  // namespace Kestrova::Utils::Serialization
