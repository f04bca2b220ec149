#include "tests/support/memory_node.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/setup/xml_code.h"

namespace {

using namespace Kestrova::Utils::Serialization;

class MemoryNodeTest : public ::testing::Test {
  protected:
    std::shared_ptr<Node> root = MemoryNode::createDocument("Root", true);
};

TEST_F(MemoryNodeTest, MissingChildIsADummyAllTheWayDown) {
    const auto dummy = root->GetChild("a");
    EXPECT_TRUE(dummy->IsDummy() && dummy->GetChild("b")->IsDummy() && dummy->Clone()->IsDummy());
    std::string result;
    dummy->WriteValue("Key", "lost", "");
    dummy->ReadValue("Key", result, "default");
    EXPECT_EQ(result, "default");
    EXPECT_EQ(root->FindChild("a"), nullptr);
    root->GetOrAddChild("a");
    EXPECT_FALSE(root->GetOrAddChild("a")->IsDummy());
    EXPECT_EQ(root->GetChildCount(), 1);
}

TEST_F(MemoryNodeTest, OpenChildFollowsTheDirectionOfTheDocument) {
    root->OpenChild("a");
    root->OpenChild("a")->SetWriting(false);
    EXPECT_FALSE(root->OpenChild("a")->IsDummy());
    EXPECT_TRUE(root->OpenChild("b")->IsDummy());
    EXPECT_EQ(toText(*root), "Root\n  a\n  a\n");
}

TEST_F(MemoryNodeTest, CloneSharesNothingWithTheOriginal) {
    const auto child = root->AddChild("Child");
    child->SetText("text");
    child->AddAttribute("Id", "0");
    const auto inner = child->AddChild("Inner");
    inner->WriteValue("Key", "1", "");
    inner->WriteValue("Other", "1", "0");
    inner->WriteValue("Other", "0", "0");  // back at its default, so left out
    const auto clone = root->Clone();
    child->ClearChildren();
    child->ClearAttributes();
    EXPECT_EQ(toText(*root), "Root\n  Child \"text\"\n");
    EXPECT_EQ(toText(*clone), "Root\n  Child \"text\"\n    @Id \"0\"\n    Inner\n      Key = 1\n");
    EXPECT_EQ(clone->GetChild("Child")->GetChild("Inner")->GetParent()->GetName(), "Child");
    EXPECT_EQ(clone->GetParent(), nullptr);
}

TEST_F(MemoryNodeTest, AddedNodeIsTheElementItselfAndHasOneParent) {
    const auto node = root->CreateNode("Child", "");
    root->AddChild(node);
    node->SetText("changed later");
    EXPECT_EQ(root->GetChild(0)->GetText(), "changed later");
    EXPECT_THROW(root->AddAttribute(node), std::invalid_argument);
    node->Recreate("Other", "x");
    EXPECT_EQ(root->GetChild(0)->GetName(), "Child");
    node->CopyReference(root);
    EXPECT_EQ(node->GetName(), "Root");
}

TEST_F(MemoryNodeTest, RemoveFormsAreAsAsymmetricAsTheHostsOwn) {
    auto child = root->AddChild("x");
    auto attribute = root->AddAttribute("x", "");
    root->RemoveChild("x");
    root->RemoveAttribute("x");
    EXPECT_EQ(toText(*root), "Root\n  @x\n  x\n");
    root->RemoveChild(0);
    EXPECT_EQ(toText(*root), "Root\n  x\n");
    root->RemoveChild(child);
    EXPECT_TRUE(child == nullptr && root->IsEmpty());
    attribute = root->AddAttribute("y", "");
    root->RemoveAttribute(attribute);
    EXPECT_TRUE(attribute == nullptr && root->IsEmpty());
}

TEST_F(MemoryNodeTest, MisuseRaisesTheCodeOfTheFirstFailedCheck) {
    auto dummy = root->GetChild("missing");
    EXPECT_EQ(codeOf([&] { root->RemoveChild(dummy); }), 13);
    EXPECT_NE(dummy, nullptr);
    EXPECT_EQ(codeOf([&] { root->GetChild(0x80000000U); }), 2);
    EXPECT_EQ(codeOf([&] { root->RemoveAttribute(0x80000000U); }), 2);
    EXPECT_EQ(root->GetChild(0), nullptr);
    root->Clear();
    EXPECT_FALSE(root->IsValid());
    EXPECT_EQ(codeOf([&] { root->OpenChild("a"); }), 6);
    EXPECT_EQ(codeOf([&] { root->GetName(); }), 5);
}

}  // namespace
