#include "setup/kestrova_kcom_node.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/host_error.h"
#include "setup/node_values.h"
#include "tests/setup/xml_code.h"
#include "tests/support/memory_node.h"
#include "tests/support/scripted_host.h"

namespace {

using namespace Kestrova::Utils;
using Creator = Kcom::KestrovaKCOMNodeCreator;
using Serialization::MemoryNode;
using Serialization::Node;
using testing::ElementsAre;
using NodePtr = std::shared_ptr<Node>;

/// The code of the host-call error that `action` raises; 0 if it raises none.
template <typename Action>
HostResult hostCodeOf(Action action) {
    try {
        action();
    } catch (const HostCallException& error) {
        return error.getCode();
    }
    return HostCode::success;
}

class KestrovaKcomNodeTest : public ::testing::Test {
  protected:
    KestrovaKcomNodeTest() { host.script.forget(); }
    ~KestrovaKcomNodeTest() override {
        root.reset();
        app.reset();
        EXPECT_THAT(host.script.referenceFaults(), testing::IsEmpty());
    }

    static NodePtr nodeOver(HostDocument* over, HostElement* element) {
        return std::make_shared<Creator>(CountedRef(over), CountedRef(element));
    }
    void useEverything();

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
    for (const auto& action : Actions{
             [](Node& node) { node.GetChild("a"); }, [](Node& node) { node.FindAttribute("a"); },
             [](Node& node) { node.GetChild(0x80000000U); },
             [](Node& node) { node.GetAttribute(0x80000000U); },
             [](Node& node) { node.AddChild("a"); }, [](Node& node) { node.AddChild(NodePtr()); },
             [](Node& node) { node.AddAttribute("a", ""); }, [](Node& node) { node.Clone(); },
             [](Node& node) { node.GetParent(); },
             [](Node& node) { node.WriteValue("a", "b", ""); },
             [](Node& node) { ReadWithDefault(node, "a", ""); }}) {
        EXPECT_EQ(codeOf([&] { action(*lost); }), 6);
        EXPECT_EQ(codeOf([&] { action(*bare); }), 5);
        EXPECT_EQ(codeOf([&] { action(*orphan); }), 6);
    }
    for (const auto& action : Actions{
             [](Node& node) { node.SetText("a"); }, [](Node& node) { node.GetName(); },
             [](Node& node) { node.IsEmpty(); }, [](Node& node) { node.GetAttributeCount(); },
             [](Node& node) { node.ClearChildren(); }, [](Node& node) { node.RemoveChild("a"); },
             [](Node& node) { node.RemoveAttribute(0x7FFFFFFFU); }}) {
        EXPECT_EQ(codeOf([&] { action(*bare); }), 5);
        EXPECT_NO_THROW(action(*orphan));
    }
    for (const auto& action : Actions{[](Node& node) { node.SetWriting(node.IsWriting()); },
                                      [](Node& node) { node.CreateNode("a", ""); },
                                      [&](Node& node) { node.CopyReference(root); }}) {
        EXPECT_EQ(codeOf([&] { action(*orphan); }), 6);
        EXPECT_NO_THROW(action(*bare));
    }
    EXPECT_EQ(codeOf([&] { root->RemoveChild(0x80000000U); }), 2);
    NodePtr dummy = root->GetChild("missing");
    EXPECT_EQ(codeOf([&] { lost->RemoveChild(dummy); }), 5);
    EXPECT_EQ(codeOf([&] { root->RemoveChild(dummy); }), 13);
    EXPECT_TRUE(dummy && dummy->Clone()->IsDummy());
}

TEST_F(KestrovaKcomNodeTest, HalfANodeIsNotCleared) {
    const auto bare = nodeOver(&document, nullptr);
    bare->Clear();
    EXPECT_TRUE(bare->IsWriting());
    document.mode = 2;
    EXPECT_FALSE(bare->IsWriting());
    root->Clear();
    EXPECT_FALSE(root->IsValid());
    EXPECT_EQ(document.references(), 1);  // of the other node
    EXPECT_EQ(document.root->references(), 0);
}

TEST_F(KestrovaKcomNodeTest, TextsReachTheHostWideAndEmptyOnesAsNull) {
    root->CreateNode("Grün", "");
    root->WriteValue("Name", "größer als €", "");
    root->SetText("");
    EXPECT_EQ(ReadWithDefault(*root, "Name", "ä"), "größer als €");
    document.forgetsToRead = true;
    EXPECT_EQ(ReadWithDefault(*root, "Name", ""), "s");
    EXPECT_THAT(
        host.script.calls(),
        ElementsAre("HostDocument::CreateElement(\"Grün\", null)",
                    "HostDocument::WriteValue(HostElement, \"Name\", \"größer als €\", null)",
                    "HostElement::SetText(null)",
                    "HostDocument::ReadValue(HostElement, \"Name\", \"ä\")",
                    "HostDocument::ReadValue(HostElement, \"Name\", null)"));
}

TEST_F(KestrovaKcomNodeTest, NodeOfAnotherClassIsCopiedWholeAndOneOfItsOwnIsNot) {
    const auto other = MemoryNode::createDocument("Other", false);
    const auto child = other->AddChild("Child");
    child->SetText("text");
    child->AddAttribute("Id", "7")->AddChild("Inner");
    other->AddChild("Last");
    root->AddChild(other)->SetText("new");
    root->AddAttribute(child);
    const auto own = root->CreateNode("Own", "");
    root->AddChild(own);
    own->SetText("later");
    EXPECT_EQ(document.root->asText(),
              "Root @Child=\"text\"\n  Other \"new\"\n    Child \"text\" @Id=\"7\"\n    Last\n"
              "  Own \"later\"\n");
    EXPECT_EQ(document.root->attributes[0]->attributes[0]->children[0]->name, L"Inner");
    EXPECT_EQ(other->GetText(), "");
    EXPECT_EQ(hostCodeOf([&] { root->AddChild(NodePtr()); }), HostCode::invalidPointer);
    EXPECT_EQ(hostCodeOf([&] { root->CopyReference(other); }), HostCode::invalidPointer);
}

TEST_F(KestrovaKcomNodeTest, NewDocumentIsMadeThroughTheHostInOrder) {
    const Creator node("Name", "text", app, true);
    EXPECT_THAT(
        host.script.calls(),
        ElementsAre("HostApp::getDocumentFactory()", "HostDocumentFactory::createDocument(true)",
                    "HostDocument::CreateElement(\"Name\", \"text\")",
                    "HostDocument::SetRootElement(HostElement)", "HostDocument::SetMode(true)"));
    const NodePtr content = MemoryNode::createDocument("Content", false);
    content->AddChild("Child");
    const Creator copy(content, app);
    EXPECT_EQ(host.documents.made[1]->root->asText(), "Content\n  Child\n");
    EXPECT_FALSE(copy.IsWriting());
    const Creator filled(CountedRef<HostDocument>(&document), content);
    EXPECT_EQ(document.root->asText(), "Root\n  Content\n    Child\n");
    EXPECT_EQ(filled.GetName(), "Root");
    app.reset();
    EXPECT_EQ(hostCodeOf([&] { Creator("a", "", app, true); }), HostCode::invalidPointer);
}

/// Makes every call that a node can make, in a fixed order.
void KestrovaKcomNodeTest::useEverything() {
    const auto other = MemoryNode::createDocument("Other", true);
    other->AddAttribute("Id", "7");
    other->AddChild("Child");
    const Creator fresh(other, app);
    const Creator filled(fresh.GetDocument(), other);
    root->SetWriting(true);
    NodePtr child = root->OpenChild("a");
    NodePtr attribute = root->AddAttribute("Id", "7");
    root->AddChild(other);
    child->SetText("text");
    child->WriteValue("Key", "1", "");
    ReadWithDefault(*child, "Key", "");
    root->GetChild("missing");
    root->GetParent();
    root->FindAttribute("Id");
    root->GetChild(0);
    root->Clone();
    child->Recreate(child->GetName(), "");
    child->IsEmpty();
    root->RemoveAttribute("a");
    root->RemoveAttribute(attribute);
    root->RemoveAttribute(0);
    root->RemoveChild(child);
    root->ClearChildren();
    root->ClearAttributes();
}

TEST_F(KestrovaKcomNodeTest, EachFailedCallComesOutWithItsCodeAndLeavesNothingBehind) {
    constexpr HostResult code = hostResult(0x80040042U);
    HostResult seen = code;
    for (std::size_t number = 1; seen != HostCode::success; ++number) {
        const std::size_t faults = host.script.faultsMet();
        host.script.failCall(number, code);
        seen = hostCodeOf([&] { useEverything(); });
        host.script.heal();
        ASSERT_EQ(seen, host.script.faultsMet() > faults ? code : HostCode::success) << number;
        EXPECT_EQ(document.references() + document.root->references(), 2) << number;
    }
    EXPECT_GT(host.script.faultsMet(), 40U);
}

TEST_F(KestrovaKcomNodeTest, MissingObjectsAreErrorsWhereThereMustBeOne) {
    const auto codeWithout = [&](const char* operation) {
        host.script.nullOperation(operation);
        const HostResult code = hostCodeOf([&] { useEverything(); });
        host.script.heal();
        return code;
    };
    for (const auto* operation :
         {"HostApp::getDocumentFactory", "HostDocumentFactory::createDocument",
          "HostDocument::CreateElement", "HostElement::Clone"}) {
        EXPECT_EQ(codeWithout(operation), HostCode::invalidPointer) << operation;
    }
    for (const auto* operation :
         {"HostElement::FindChild", "HostElement::GetChild", "HostElement::GetAttribute",
          "HostElement::FindAttribute", "HostElement::GetParent"}) {
        EXPECT_EQ(codeWithout(operation), HostCode::success) << operation;
    }
}

}  // namespace
