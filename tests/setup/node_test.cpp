#include "tests/support/setup_tree.h"

namespace {

using namespace Kestrova::Utils::Serialization;

class NodeTest : public ::testing::Test {
  protected:
    std::shared_ptr<Node> root = makeSetupTree("Root");
};

TEST_F(NodeTest, MissingChildIsADummyAllTheWayDown) {
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

TEST_F(NodeTest, OpenChildFollowsTheDirectionOfTheDocument) {
    root->OpenChild("a");
    root->OpenChild("a")->SetWriting(false);
    EXPECT_FALSE(root->OpenChild("a")->IsDummy());
    EXPECT_TRUE(root->OpenChild("b")->IsDummy());
    EXPECT_EQ(toText(*root), "Root\n  a\n  a\n");
}

TEST_F(NodeTest, CloneSharesNothingWithTheOriginal) {
    root->AddAttribute("Id", "0");
    root->AddChild("Child")->WriteValue("Key", "1", "");
    const auto clone = root->Clone();
    root->ClearChildren();
    root->ClearAttributes();
    EXPECT_EQ(toText(*root), "Root\n");
    EXPECT_EQ(toText(*clone), "Root\n  @Id \"0\"\n  Child\n    Key = 1\n");
    EXPECT_EQ(clone->GetChild("Child")->GetParent()->GetName(), "Root");
    EXPECT_EQ(clone->GetParent(), nullptr);
}

TEST_F(NodeTest, AddedNodeIsTheElementItself) {
    const auto node = root->CreateNode("Child", "");
    root->AddChild(node);
    node->SetText("changed later");
    EXPECT_EQ(root->GetChild(0)->GetText(), "changed later");
    node->Recreate("Other", "x");
    EXPECT_EQ(root->GetChild(0)->GetName(), "Child");
    node->CopyReference(root);
    EXPECT_EQ(node->GetName(), "Root");
}

}  // namespace
