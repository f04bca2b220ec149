#pragma once

#include <cstdint>
#include <exception>

namespace Kestrova::Utils::Serialization {

/// The one error of the setup tree. The text from `what` follows from the code.
class XmlException : public std::exception {
  public:
    /// The codes that nothing in this system raises belong to node classes over plain files.
    enum Code : std::int32_t {
        UnexpectedType = 0,      ///< a typed read found text that isn't of the type
        NodeMissing = 1,         ///< not raised here
        IndexTooLarge = 2,       ///< an index above 0x7FFFFFFF
        ValueTooLarge = 3,       ///< not raised here
        OutOfRange = 4,          ///< a typed read found a number that doesn't fit
        NodeNotInitialized = 5,  ///< a node without an element
        DocumentNotSet = 6,      ///< a node without a document
        NullNode = 7,            ///< not raised here
        NullDocument = 8,        ///< not raised here
        FileNameNotSet = 9,      ///< not raised here
        FileNotOpened = 10,      ///< not raised here
        FileNotRead = 11,        ///< not raised here
        FileNotParsed = 12,      ///< not raised here
        DummyNode = 13,          ///< a dummy where a real node is needed
    };

    /// One of `Code`; any other value is kept and has a text of its own.
    explicit XmlException(std::int32_t codeOfError) noexcept : code(codeOfError) {}

    std::int32_t GetCode() const noexcept { return code; }
    const char* what() const noexcept override;

  private:
    const std::int32_t code;
};

}  // namespace Kestrova::Utils::Serialization
