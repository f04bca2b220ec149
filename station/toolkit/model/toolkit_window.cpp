#include "station/toolkit/model/toolkit_window.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <utility>

#include "station/runtime/runtime_exports.h"

namespace station {

using Kestrova::Tessel::IComponent;
using Kestrova::Tessel::IControl;
namespace Core = Kestrova::RT::Core;

ToolkitWindow::ToolkitWindow(FailureSinkPtr failureSink)
    : Component("window", std::move(failureSink)) {}

ToolkitWindow::~ToolkitWindow() {
    if (content) {
        content->detach();
    }
}

HostResult ToolkitWindow::queryInterface(const InterfaceId& interfaceId, void** result) {
    return interfaceId == RuntimeLibrary::id ? kvRtGetLibrary()->queryInterface(interfaceId, result)
                                             : Component::queryInterface(interfaceId, result);
}

HostResult ToolkitWindow::setXml(RuntimeString* xml) {
    return toolkitCall(
        [&] { replaceContent(std::make_unique<WindowElement>(readWindow(textOf(xml), sink))); });
}

void ToolkitWindow::close() {
    replaceContent(nullptr);
}

void ToolkitWindow::replaceContent(std::unique_ptr<WindowElement> next) {
    const CountedRef<ToolkitWindow> self(this);
    const auto old = std::exchange(content, std::move(next));
    if (old) {
        old->detach();
    }
    onContentChanged();
}

HostResult ToolkitWindow::findControl(RuntimeString* controlName, IControl** control) {
    return toolkitCall([&] {
        const std::string wanted = textOf(controlName);
        const WindowElement* const found = content ? content->find(wanted) : nullptr;
        if (found != nullptr && found->grid) {
            *control = CountedRef<DrawGrid>(found->grid).detach();
        } else if (found != nullptr && found->button) {
            *control = CountedRef<IconButton>(found->button).detach();
        } else {
            const auto names = content ? content->getControlNames() : std::vector<std::string>();
            throw Core::NotFoundException(
                fmt::format("the window has no control \"{}\"; it has: {}", wanted,
                            names.empty() ? "none" : fmt::format("{}", fmt::join(names, ", "))));
        }
    });
}

HostResult ToolkitWindow::create(RuntimeString* typeName, RuntimeString*, IComponent** component) {
    return toolkitCall([&] {
        if (textOf(typeName) != "Timer") {
            throw Core::NotFoundException(
                fmt::format("the toolkit makes no \"{}\", it makes: Timer", textOf(typeName)));
        }
        *component = makeTimer().detach();
    });
}

}  // namespace station
