#include "setup/kestrova_kcom_node.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/host_error.h"
#include "setup/node_values.h"
#include "tests/setup/xml_code.h"
#include "tests/support/scripted_host.h"

namespace {

using namespace Kestrova::Utils;
using Creator = Kcom::KestrovaKCOMNodeCreator;
using Serialization::Node;
using testing::ElementsAre;
using NodePtr = std::shared_ptr<Node>;

class KestrovaKcomNodeTest : public ::testing::Test {
  protected:
    KestrovaKcomNodeTest() { host.script.forget(); }

    static NodePtr nodeOver(HostDocument* over, HostElement* element) {
        return std::make_shared<Creator>(CountedRef(over), CountedRef(element));
    }

    ScriptedHost host;
    ScriptedDocument& document = host.makeDocument(L"Root", true);
    NodePtr root = nodeOver(&document, document.root);
    CountedRef<HostApp> app{&host.app};
};

TEST_F(KestrovaKcomNodeTest, MissingDocumentIsToldBeforeMissingElementAndBothBeforeTheIndex) {
    using Actions = std::vector<std::function<void(Node&)>>;
    const auto lost = nodeOver(nullptr, nullptr);
    const auto bare = nodeOver(&document, nullptr);
    const auto orphan = nodeOver(nullptr, document.root);
    for (const auto& action :
         Actions{[](Node& node) { node.GetChild("a"); },
                 [](Node& node) { node.GetAttribute(0x80000000U); },
                 [](Node& node) { node.AddChild(NodePtr()); }, [](Node& node) { node.Clone(); },
                 [](Node& node) { node.WriteValue("a", "b", ""); }}) {
        EXPECT_EQ(codeOf([&] { action(*lost); }), 6);
        EXPECT_EQ(codeOf([&] { action(*bare); }), 5);
        EXPECT_EQ(codeOf([&] { action(*orphan); }), 6);
    }
    EXPECT_EQ(codeOf([&] { root->RemoveChild(0x80000000U); }), 2);
    NodePtr dummy = root->GetChild("missing");
    EXPECT_EQ(codeOf([&] { lost->RemoveChild(dummy); }), 5);
    EXPECT_EQ(codeOf([&] { root->RemoveChild(dummy); }), 13);
    EXPECT_TRUE(dummy);
}

TEST_F(KestrovaKcomNodeTest, TextsReachTheHostWideAndEmptyOnesAsNull) {
    root->CreateNode("Grün", "");
    root->WriteValue("Name", "größer als €", "");
    root->SetText("");
    EXPECT_EQ(ReadWithDefault(*root, "Name", "ä"), "größer als €");
    EXPECT_THAT(
        host.script.calls(),
        ElementsAre("HostDocument::CreateElement(\"Grün\", null)",
                    "HostDocument::WriteValue(HostElement, \"Name\", \"größer als €\", null)",
                    "HostElement::SetText(null)",
                    "HostDocument::ReadValue(HostElement, \"Name\", \"ä\")"));
}

TEST_F(KestrovaKcomNodeTest, NewDocumentIsMadeThroughTheHostInOrder) {
    const Creator node("Name", "text", app, true);
    EXPECT_THAT(
        host.script.calls(),
        ElementsAre("HostApp::getDocumentFactory()", "HostDocumentFactory::createDocument(true)",
                    "HostDocument::CreateElement(\"Name\", \"text\")",
                    "HostDocument::SetRootElement(HostElement)", "HostDocument::SetMode(true)"));
    app.reset();
    EXPECT_EQ(hostCodeOf([&] { Creator("a", "", app, true); }), HostCode::invalidPointer);
}

}  // namespace
