#include "setup/kestrova_kcom_node.h"

#include "host/host_error.h"
#include "setup/node_values.h"
#include "setup/xml_exception.h"
#include "tests/support/scripted_host.h"

namespace {

using namespace Kestrova::Utils;
using Creator = Kcom::KestrovaKCOMNodeCreator;
using Serialization::Node;
using testing::Each;
using testing::ElementsAre;
using NodePtr = std::shared_ptr<Node>;

/// The code of the `XmlException` that `action` raises; -1 if it raises none.
template <typename Action>
std::int32_t codeOf(Action action) {
    try {
        action();
    } catch (const Serialization::XmlException& error) {
        return error.GetCode();
    }
    return -1;
}

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

TEST_F(KestrovaKcomNodeTest, MissingDocumentIsReportedBeforeMissingElementAndBothBeforeTheIndex) {
    /// The codes with neither, with a document alone and with an element alone.
    const auto codes = [&](const std::function<void(Node&)>& action) {
        std::vector<std::int32_t> all;
        for (const auto& node : {nodeOver(nullptr, nullptr), nodeOver(&document, nullptr),
                                 nodeOver(nullptr, document.root)}) {
            all.push_back(codeOf([&] { action(*node); }));
        }
        return all;
    };
#define CODES_OF(call) codes([&](Node& node) { node.call; })
    NodePtr dummy = root->GetChild("missing");
    std::string text;
    EXPECT_THAT(
        (std::vector{CODES_OF(GetChild("a")), CODES_OF(FindChild("a")), CODES_OF(FindAttribute("")),
                     CODES_OF(GetChild(0x80000000U)), CODES_OF(GetAttribute(0x80000000U)),
                     CODES_OF(AddChild(NodePtr())), CODES_OF(AddChild("a")), CODES_OF(Clone()),
                     CODES_OF(AddAttribute("a", "b")), CODES_OF(WriteValue("", "", "")),
                     CODES_OF(GetParent()), CODES_OF(ReadValue("a", text, ""))}),
        Each(ElementsAre(6, 5, 6)));
    EXPECT_THAT(
        (std::vector{CODES_OF(SetText("a")), CODES_OF(ClearChildren()), CODES_OF(GetText()),
                     CODES_OF(GetChildCount()), CODES_OF(GetAttributeCount()),
                     CODES_OF(ClearAttributes()), CODES_OF(GetName()), CODES_OF(RemoveChild("a"))}),
        Each(ElementsAre(5, 5, -1)));
    EXPECT_THAT((std::vector{CODES_OF(CreateNode("a", "")), CODES_OF(Recreate("a", "")),
                             CODES_OF(CopyReference(root)), CODES_OF(SetWriting(true))}),
                Each(ElementsAre(6, -1, 6)));
    EXPECT_THAT(CODES_OF(RemoveChild(0x80000000U)), ElementsAre(5, 5, 2));
    EXPECT_THAT(CODES_OF(RemoveChild(dummy)), ElementsAre(5, 5, 13));
    EXPECT_TRUE(dummy);
#undef CODES_OF
    EXPECT_EQ(codeOf([&] { root->GetChild(0x80000000U); }), 2);
    EXPECT_FALSE(root->GetChild(0x7FFFFFFFU));
    host.script.failOperation("HostDocument::CreateElement", CallScript::noObject);
    EXPECT_EQ(hostCodeOf([&] { root->GetChild("a"); }), HostCode::invalidPointer);
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
    host.script.failOperation("HostDocumentFactory::createDocument", CallScript::noObject);
    EXPECT_EQ(hostCodeOf([&] { Creator("a", "", app, true); }), HostCode::invalidPointer);
    app.reset();
    EXPECT_EQ(hostCodeOf([&] { Creator("a", "", app, true); }), HostCode::invalidPointer);
}

TEST_F(KestrovaKcomNodeTest, ContentIsCopiedIntoAnotherDocumentWithAllButItsValues) {
    auto& source = host.makeDocument(L"Content", false);
    source.root->addNewAttribute(L"Id", L"0");
    source.root->addNewAttribute(L"Unit", L"V");
    auto& child = source.root->addNew(L"First", L"text");
    child.addNewAttribute(L"Id", L"1");
    source.root->addNew(L"Second");
    const std::string text = source.root->asText("  ");
    child.values = {{L"Key", L"1"}};
    const auto content = nodeOver(&source, source.root);
    const Creator copy(content, app);
    EXPECT_EQ(dynamic_cast<const ScriptedElement&>(*copy.GetElement()).asText("  "), text);
    EXPECT_FALSE(copy.IsWriting());
    const CountedRef<HostDocument> target(&document);
    Creator(target, NodePtr());
    EXPECT_EQ(document.root->asText(), "Root\n");
    EXPECT_EQ(Creator(target, content).GetElement().get(), document.root);
    EXPECT_EQ(document.root->asText(), "Root\n" + text);
    document.root = nullptr;
    EXPECT_EQ(codeOf([&] { Creator(target, content); }), 5);
    EXPECT_EQ(codeOf([&] { Creator(CountedRef<HostDocument>(), content); }), 6);
}

TEST_F(KestrovaKcomNodeTest, OnlyTheNodeItselfIsRemovedFromTheChildren) {
    document.root->addNew(L"a");
    document.root->addNew(L"b");
    document.root->addNewAttribute(L"b", L"");
    NodePtr attribute = root->FindAttribute("b");
    NodePtr child = root->GetChild(0);
    const std::string removed = ", Element.RemoveAttribute(HostElement), ";
    const std::string calls = host.callsOf([&] {
        root->RemoveAttribute("b");
        root->RemoveChild("b");
        root->RemoveChild("c");
        root->RemoveAttribute(0);
        root->RemoveChild(0);
        root->RemoveAttribute(attribute);
        root->RemoveChild(child);
    });
    EXPECT_EQ(calls, "Element.FindChild(\"b\")" + removed + "Element.FindChild(\"b\")" + removed +
                         "Element.FindChild(\"c\"), Element.GetAttribute(0)" + removed +
                         "Element.GetAttribute(0)" + removed +
                         "Element.RemoveAttribute(HostElement), Element.RemoveChild(HostElement)");
    EXPECT_FALSE(attribute || child);
    EXPECT_EQ(document.root->asText(), "Root @b=\"\"\n  b\n");
}

TEST_F(KestrovaKcomNodeTest, EmptyIsWhatHasNeitherChildrenNorAttributesNorText) {
    for (const auto& fill : std::vector<std::function<void()>>{
             [&] { root->SetText("text"); }, [&] { root->AddAttribute("Id", ""); },
             [&] { root->AddChild("a"); }}) {
        root = nodeOver(&document, &host.script.make<ScriptedElement>(L"New"));
        EXPECT_TRUE(root->IsEmpty());
        fill();
        EXPECT_FALSE(root->IsEmpty());
    }
}

TEST_F(KestrovaKcomNodeTest, ClearDropsBothAndOneAloneStays) {
    const auto bare = nodeOver(&document, nullptr);
    bare->Clear();
    EXPECT_FALSE(bare->IsValid() || nodeOver(nullptr, document.root)->IsValid());
    bare->Recreate("a", "b");
    EXPECT_EQ(bare->GetText(), "b");
    bare->Clear();
    EXPECT_EQ(codeOf([&] { bare->IsWriting(); }), 6);
    EXPECT_EQ(codeOf([&] { bare->GetText(); }), 5);
}

}  // namespace
