#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <vector>

#include "setup/kestrova_kcom_node.h"
#include "setup/node_values.h"
#include "station/document/setup_document.h"
#include "tests/setup/xml_code.h"
#include "tests/support/memory_node.h"

/// The node over the station's documents and the one that tests use in its place do the same: what
/// a test saw over the one holds over the other.
namespace {

using namespace Kestrova::Utils;
using NodePtr = std::shared_ptr<Serialization::Node>;

const std::vector<std::string> names = {"a", "b", "Grün", ""};

NodePtr stationRoot() {
    const auto document = station::makeCounted<station::SetupDocument>(true);
    const auto root = station::makeCounted<station::SetupElement>(L"Root", L"");
    document->SetRootElement(root.get());
    return std::make_shared<Kcom::KestrovaKCOMNodeCreator>(CountedRef<HostDocument>(document.get()),
                                                           CountedRef<HostElement>(root.get()));
}

std::string describe(const Serialization::Node& node) {
    std::string text = node.GetName() + '=' + node.GetText() + (node.IsEmpty() ? "(" : "+(");
    for (const auto& key : names) {
        text += ReadWithDefault(node, key, "none") + ' ';
    }
    for (std::uint64_t i = 0; const auto attribute = node.GetAttribute(i); ++i) {
        text += '@' + describe(*attribute);
    }
    for (std::uint64_t i = 0; const auto child = node.GetChild(i); ++i) {
        text += describe(*child);
    }
    return text + ')';
}

struct Arguments {
    std::string name;
    std::string text;
    std::uint64_t index;
};
using Action = std::function<NodePtr(NodePtr& node, NodePtr& other, const Arguments& with)>;

const std::vector<Action> actions = {
    [](auto& node, auto&, auto& with) { return node->AddChild(with.name); },
    [](auto& node, auto&, auto& with) {
        return node->AddChild(node->CreateNode(with.name, with.text));
    },
    [](auto& node, auto& other, auto&) { return node->AddAttribute(other->Clone()); },
    [](auto& node, auto&, auto& with) { return node->AddAttribute(with.name, with.text); },
    [](auto& node, auto&, auto& with) { return node->OpenChild(with.name); },
    [](auto& node, auto&, auto& with) { return node->GetOrAddChild(with.name); },
    [](auto& node, auto&, auto& with) { return node->GetChild(with.name); },
    [](auto& node, auto&, auto& with) { return node->FindChild(with.name); },
    [](auto& node, auto&, auto& with) { return node->FindAttribute(with.name); },
    [](auto& node, auto&, auto& with) { return node->GetChild(with.index); },
    [](auto& node, auto&, auto& with) { return node->GetAttribute(with.index); },
    [](auto& node, auto&, auto&) { return node->GetParent(); },
    [](auto& node, auto&, auto& with) { return node->SetWriting(with.index != 0), nullptr; },
    [](auto& node, auto&, auto& with) { return node->SetText(with.text), nullptr; },
    [](auto& node, auto&, auto& with) {
        return node->WriteValue(with.name, with.text, "a"), nullptr;
    },
    [](auto& node, auto&, auto& with) { return node->RemoveChild(with.index), nullptr; },
    [](auto& node, auto&, auto& with) { return node->RemoveAttribute(with.name), nullptr; },
    [](auto& node, auto& other, auto&) { return node->RemoveChild(other), nullptr; },
    [](auto& node, auto& other, auto&) { return node->RemoveAttribute(other), nullptr; },
    [](auto& node, auto&, auto& with) {
        return with.index == 0 ? node->ClearChildren() : node->ClearAttributes(), nullptr;
    },
};

/// The same node in both trees.
struct Twins {
    NodePtr memory;
    NodePtr station;
};

class Conformance : public ::testing::TestWithParam<unsigned> {};

TEST_P(Conformance, SameOperationsGiveTheSameTreeNodesAndErrors) {
    std::minstd_rand random(GetParam());
    const auto below = [&](std::size_t bound) { return random() % bound; };
    const Twins root{Serialization::MemoryNode::createDocument("Root", true), stationRoot()};
    std::vector<Twins> pool = {root};
    for (int step = 0; step < 250; ++step) {
        Twins node = pool[below(pool.size())];
        Twins other = pool[below(pool.size())];
        const Action action = actions[below(actions.size())];
        const Arguments with = {names[below(names.size())], names[below(names.size())],
                                below(8) == 0 ? 0x80000000U : below(3)};
        Twins given;
        const auto code = codeOf([&] { given.memory = action(node.memory, other.memory, with); });
        ASSERT_EQ(codeOf([&] { given.station = action(node.station, other.station, with); }), code);
        ASSERT_EQ(given.memory == nullptr, given.station == nullptr) << step;
        ASSERT_EQ(other.memory == nullptr, other.station == nullptr) << step;
        if (given.memory) {
            ASSERT_EQ(given.memory->IsDummy(), given.station->IsDummy()) << step;
            ASSERT_EQ(describe(*given.memory), describe(*given.station)) << step;
            pool.push_back(given);
        }
        ASSERT_EQ(root.memory->IsWriting(), root.station->IsWriting()) << step;
        ASSERT_EQ(describe(*root.memory), describe(*root.station)) << step;
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, Conformance, ::testing::Range(1U, 13U));

}  // namespace
