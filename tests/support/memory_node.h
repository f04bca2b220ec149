#pragma once

#include <memory>
#include <string>

#include "setup/node.h"

namespace Kestrova::Utils::Serialization {

/// A setup tree in memory: what tests hand to code that saves and loads, in place of the host's
/// document. Values are kept per element and beside its children; one that equals its default is
/// left out, and a key that isn't there gives the default back.
///
/// `AddChild(node)`, `AddAttribute(node)` and the like take nodes of this class only, and an
/// element that hangs in a tree can't be added to another: both are `std::invalid_argument`, as
/// a test that does so is wrong.
class MemoryNode : public Node {
  public:
    /// The root element of a new document.
    static std::shared_ptr<Node> createDocument(const std::string& rootName, bool writing);

  protected:
    using Node::Node;
};

/// The tree below a `MemoryNode`, a line for each element, to be compared with a text in a test:
///
///     CmpDevices
///       CmpDevice "text, where there is one"
///         @Id "0"
///         ClockId = 3
///         Channels
///
/// In an element come first its attributes, then its values in the order of their first writing,
/// then its children. Throws `std::bad_cast` for a node of another class.
std::string toText(const Node& node);

}  // namespace Kestrova::Utils::Serialization
