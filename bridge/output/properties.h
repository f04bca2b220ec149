#pragma once

#include <memory>
#include <string>

#include "setup/node.h"

namespace Kestrova::Utils::Kcom {

/// A channel's property documents, which are trees of their own, by name (UTF-8). Called on the
/// host's thread. An empty reference comes back where the host has no document of that name.
class Properties {
  public:
    using Node = Serialization::Node;

    virtual ~Properties() = default;

    /// The root of the document.
    virtual std::shared_ptr<Node> getNode(const std::string& name) const = 0;
    /// The root of the document, to which a deep copy of `parent` is added; `parent` may be empty.
    virtual std::shared_ptr<Node> getChildNode(const std::string& name,
                                               const std::shared_ptr<Node>& parent) const = 0;
    /// The root of a new document.
    virtual std::shared_ptr<Node> addNode(const std::string& name) = 0;
};

}  // namespace Kestrova::Utils::Kcom
