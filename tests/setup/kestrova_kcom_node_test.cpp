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
    const auto expectCodes = [&](int withNone, int withDocument, int withElement,
                                 const Actions& actions) {
        for (std::size_t i = 0; i < actions.size(); ++i) {
            const auto codeOver = [&](HostDocument* over, HostElement* element) {
                return codeOf([&] { actions[i](*nodeOver(over, element)); });
            };
            EXPECT_EQ(codeOver(nullptr, nullptr), withNone) << i;
            EXPECT_EQ(codeOver(&document, nullptr), withDocument) << i;
            EXPECT_EQ(codeOver(nullptr, document.root), withElement) << i;
        }
    };
    NodePtr dummy = root->GetChild("missing");
    std::string text;
#define ON_NODE(call) [&](Node& node) { node.call; }
    expectCodes(6, 5, 6,
                {ON_NODE(GetChild("a")), ON_NODE(FindChild("a")), ON_NODE(FindAttribute("a")),
                 ON_NODE(GetChild(0x80000000U)), ON_NODE(GetAttribute(0x80000000U)),
                 ON_NODE(AddChild(NodePtr())), ON_NODE(AddChild("a")), ON_NODE(GetParent()),
                 ON_NODE(AddAttribute("a", "b")), ON_NODE(Clone()), ON_NODE(WriteValue("", "", "")),
                 ON_NODE(ReadValue("a", text, ""))});
    expectCodes(5, 5, -1,
                {ON_NODE(SetText("a")), ON_NODE(ClearChildren()), ON_NODE(ClearAttributes()),
                 ON_NODE(GetChildCount()), ON_NODE(GetAttributeCount()), ON_NODE(GetName()),
                 ON_NODE(GetText()), ON_NODE(RemoveChild("a"))});
    expectCodes(6, -1, 6,
                {ON_NODE(CreateNode("a", "")), ON_NODE(Recreate("a", "")), ON_NODE(IsWriting()),
                 ON_NODE(CopyReference(root)), ON_NODE(SetWriting(true))});
    expectCodes(5, 5, 2, {ON_NODE(RemoveChild(0x80000000U))});
    expectCodes(5, 5, 13, {ON_NODE(RemoveChild(dummy))});
#undef ON_NODE
    EXPECT_TRUE(dummy);
    EXPECT_EQ(codeOf([&] { root->GetChild(0x80000000U); }), 2);
    EXPECT_FALSE(root->GetChild(0x7FFFFFFFU));
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
    host.script.nullOperation("HostDocumentFactory::createDocument");
    EXPECT_EQ(hostCodeOf([&] { Creator("a", "", app, true); }), HostCode::invalidPointer);
    app.reset();
    EXPECT_EQ(hostCodeOf([&] { Creator("a", "", app, true); }), HostCode::invalidPointer);
}

TEST_F(KestrovaKcomNodeTest, ContentIsCopiedIntoAnotherDocumentWithAllButItsValues) {
    auto& source = host.makeDocument(L"Content", false);
    source.root->addNewAttribute(L"Id", L"0");
    source.root->addNewAttribute(L"Kind", L"");
    auto& child = source.root->addNew(L"First", L"text");
    child.addNewAttribute(L"Id", L"1");
    child.addNew(L"Inner");
    source.root->addNew(L"Second");
    const auto content = nodeOver(&source, source.root);
    const std::string text = source.root->asText();
    child.values = {{L"Key", L"1"}};
    const Creator copy(content, app);
    const auto& copied = dynamic_cast<const ScriptedElement&>(*copy.GetElement());
    EXPECT_EQ(copied.asText(), text);
    EXPECT_NE(&copied, source.root);
    EXPECT_FALSE(copy.IsWriting());
    source.mode = HostDocument::modeWriting;
    EXPECT_TRUE(Creator(content, app).IsWriting());

    const CountedRef<HostDocument> target(&document);
    EXPECT_EQ(Creator(target, NodePtr()).GetElement().get(), document.root);
    EXPECT_EQ(document.root->asText(), "Root\n");
    EXPECT_EQ(Creator(target, content).GetElement().get(), document.root);
    EXPECT_EQ(document.root->asText(), "Root\n" + copied.asText("  "));
    document.root = nullptr;
    EXPECT_EQ(codeOf([&] { Creator(target, content); }), 5);
    EXPECT_EQ(codeOf([&] { Creator(CountedRef<HostDocument>(), content); }), 6);
}

TEST_F(KestrovaKcomNodeTest, OnlyTheNodeItselfIsRemovedFromTheChildren) {
    document.root->addNew(L"a");
    document.root->addNew(L"b");
    document.root->addNewAttribute(L"b", L"");
    NodePtr node = root->FindAttribute("b");
    EXPECT_EQ(host.callsOf([&] {
        root->RemoveAttribute("b");
        root->RemoveChild("b");
        root->RemoveChild("c");
        root->RemoveAttribute(0);
        root->RemoveChild(0);
        root->RemoveAttribute(node);
    }),
              "Element.FindChild(\"b\"), Element.RemoveAttribute(HostElement), "
              "Element.FindChild(\"b\"), Element.RemoveAttribute(HostElement), "
              "Element.FindChild(\"c\"), "
              "Element.GetAttribute(0), Element.RemoveAttribute(HostElement), "
              "Element.GetAttribute(0), Element.RemoveAttribute(HostElement), "
              "Element.RemoveAttribute(HostElement)");
    EXPECT_FALSE(node);
    node = root->GetChild(0);
    root->RemoveChild(node);
    EXPECT_FALSE(node);
    EXPECT_EQ(document.root->asText(), "Root @b=\"\"\n  b\n");
    EXPECT_EQ(hostCodeOf([&] { root->RemoveChild(node); }), HostCode::invalidPointer);
}

TEST_F(KestrovaKcomNodeTest, EmptyIsWhatHasNeitherChildrenNorAttributesNorText) {
    const auto expectCalls = [&](bool empty, const char* calls) {
        EXPECT_EQ(host.callsOf([&] { EXPECT_EQ(root->IsEmpty(), empty); }), calls);
    };
    expectCalls(true, "Element.GetChildCount, Element.GetAttributeCount, Element.GetText");
    root->SetText("text");
    expectCalls(false, "Element.GetChildCount, Element.GetAttributeCount, Element.GetText");
    root->AddAttribute("Id", "");
    expectCalls(false, "Element.GetChildCount, Element.GetAttributeCount");
    root->AddChild("a");
    expectCalls(false, "Element.GetChildCount");
}

TEST_F(KestrovaKcomNodeTest, ClearDropsBothAndOneAloneStays) {
    const auto bare = nodeOver(&document, nullptr);
    bare->Clear();
    EXPECT_FALSE(bare->IsValid());
    bare->Recreate("a", "b");
    EXPECT_EQ(bare->GetText(), "b");
    EXPECT_TRUE(bare->IsValid());
    bare->Clear();
    EXPECT_FALSE(bare->IsValid() || nodeOver(nullptr, document.root)->IsValid());
    EXPECT_EQ(codeOf([&] { bare->IsWriting(); }), 6);
    EXPECT_EQ(codeOf([&] { bare->GetText(); }), 5);
}

}  // namespace
