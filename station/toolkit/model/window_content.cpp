#include "station/toolkit/model/window_content.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <pugixml.hpp>
#include <set>
#include <string_view>

#include "core/parse_number.h"

namespace station {

namespace {

using Kestrova::RT::Core::ParseFailedException;
using Kind = WindowElement::Kind;

class Reader {
  public:
    Reader(const std::string& text, const FailureSinkPtr& failureSink)
        : xml(text), sink(failureSink) {}

    WindowElement read() {
        pugi::xml_document document;
        const auto result = document.load_buffer(xml.data(), xml.size());
        if (!result) {
            fail(result.offset, result.description());
        }
        const pugi::xml_node root = document.document_element();
        if (std::string_view(root.name()) != "Window") {
            fail(root, fmt::format("the root must be Window, not {}", root.name()));
        }
        return readElement(root, 1, 1);
    }

  private:
    [[noreturn]] void fail(std::ptrdiff_t offset, const std::string& what) const {
        const auto place = xml.begin() + std::clamp<std::ptrdiff_t>(
                                             offset, 0, static_cast<std::ptrdiff_t>(xml.size()));
        throw ParseFailedException(fmt::format("the window's XML, line {}: {}",
                                               1 + std::count(xml.begin(), place, '\n'), what));
    }
    [[noreturn]] void fail(const pugi::xml_node& node, const std::string& what) const {
        fail(node.offset_debug(), what);
    }

    WindowElement readElement(const pugi::xml_node& node, std::size_t rowCount,
                              std::size_t columnCount) {
        WindowElement element;
        element.kind = kindOf(node);
        element.name = node.attribute("Name").value();
        if (!element.name.empty() && !names.insert(element.name).second) {
            fail(node, fmt::format("there is a control \"{}\" already", element.name));
        }
        element.title = node.attribute("Title").value();
        element.background = node.attribute("Background").value();
        element.iconName = node.attribute("IconName").value();
        place(node, "Row", rowCount, element.row, element.rowSpan);
        place(node, "Column", columnCount, element.column, element.columnSpan);
        makeControl(element);
        readChildren(node, element);
        return element;
    }

    Kind kindOf(const pugi::xml_node& node) const {
        static const std::map<std::string_view, Kind> kinds = {
            {"Window", Kind::Window},       {"CaptionPanel", Kind::CaptionPanel},
            {"Grid", Kind::Grid},           {"IconButton", Kind::IconButton},
            {"KVDrawGrid", Kind::DrawGrid},
        };
        const auto found = kinds.find(node.name());
        const bool isRoot = node.parent().type() == pugi::node_document;
        if (found == kinds.end() || (found->second == Kind::Window) != isRoot) {
            fail(node, fmt::format("{} can't stand here; there are CaptionPanel, Grid, IconButton "
                                   "and KVDrawGrid",
                                   node.name()));
        }
        return found->second;
    }

    void makeControl(WindowElement& element) const {
        if (element.kind == Kind::IconButton) {
            element.button = makeObject<IconButton>(element.name, sink);
        } else if (element.kind == Kind::DrawGrid) {
            element.grid = makeObject<DrawGrid>(element.name, sink);
        }
    }

    void readChildren(const pugi::xml_node& node, WindowElement& element) {
        const bool isGrid = element.kind == Kind::Grid;
        if (isGrid) {
            element.rows = readSizes(node, "Rows");
            element.columns = readSizes(node, "Columns");
        }
        for (const pugi::xml_node& child : node.children()) {
            if (child.type() == pugi::node_element) {
                element.children.push_back(
                    readElement(child, std::max<std::size_t>(element.rows.size(), 1),
                                std::max<std::size_t>(element.columns.size(), 1)));
            }
        }
        const bool isLeaf = element.kind == Kind::IconButton || element.kind == Kind::DrawGrid;
        if (!isGrid && element.children.size() > (isLeaf ? 0U : 1U)) {
            fail(node,
                 fmt::format("{} has too many elements in it: put them into a Grid", node.name()));
        }
    }

    /// "5,100%"; no attribute means all there is.
    std::vector<GridSize> readSizes(const pugi::xml_node& node, const char* attribute) const {
        std::vector<GridSize> sizes;
        const std::string list = node.attribute(attribute).as_string("100%");
        for (std::size_t start = 0; start <= list.size();) {
            const std::size_t end = std::min(list.find(',', start), list.size());
            sizes.push_back(readSize(node, list.substr(start, end - start)));
            start = end + 1;
        }
        return sizes;
    }

    GridSize readSize(const pugi::xml_node& node, std::string text) const {
        std::erase(text, ' ');
        GridSize size;
        size.isShare = text.ends_with('%');
        const auto value = parseNumber<decltype(size.value)>(
            std::string_view(text).substr(0, text.size() - (size.isShare ? 1 : 0)));
        if (!value || !(*value >= 0.0 && *value <= 1e6)) {
            fail(node,
                 fmt::format("\"{}\" is no size: write pixels, or percent as \"100%\"", text));
        }
        size.value = *value;
        return size;
    }

    /// A place behind the last row or column is the last.
    void place(const pugi::xml_node& node, const std::string& attribute, std::size_t count,
               int& first, int& span) const {
        const int last = static_cast<int>(count) - 1;
        first = std::min(readNumber(node, attribute, 0), last);
        span = std::min(readNumber(node, attribute + "Span", 1), last - first + 1);
    }

    int readNumber(const pugi::xml_node& node, const std::string& attribute, int least) const {
        const pugi::xml_attribute found = node.attribute(attribute.c_str());
        if (!found) {
            return least;
        }
        const std::string_view text = found.value();
        const auto number = parseNumber<int>(text);
        if (!number || *number < least) {
            fail(node,
                 fmt::format("{}=\"{}\" must be a number from {} on", attribute, text, least));
        }
        return *number;
    }

    const std::string& xml;
    const FailureSinkPtr& sink;
    std::set<std::string> names;
};

}  // namespace

const WindowElement* WindowElement::find(const std::string& wanted) const {
    for (const WindowElement& child : children) {
        if (child.name == wanted) {
            return &child;
        }
        if (const WindowElement* const found = child.find(wanted); found != nullptr) {
            return found;
        }
    }
    return nullptr;
}

std::vector<std::string> WindowElement::getControlNames() const {
    std::vector<std::string> names;
    for (const WindowElement& child : children) {
        if ((child.button || child.grid) && !child.name.empty()) {
            names.push_back(child.name);
        }
        const auto below = child.getControlNames();
        names.insert(names.end(), below.begin(), below.end());
    }
    return names;
}

void WindowElement::detach() const {
    if (button) {
        button->detach();
    }
    if (grid) {
        grid->detach();
        grid->setView(nullptr);
    }
    for (const WindowElement& child : children) {
        child.detach();
    }
}

WindowElement readWindow(const std::string& xml, const FailureSinkPtr& sink) {
    return Reader(xml, sink).read();
}

}  // namespace station
