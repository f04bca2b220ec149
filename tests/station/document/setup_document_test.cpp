#include "station/document/setup_document.h"

#include <gtest/gtest.h>

#include "core/string_helper.h"

namespace station {
namespace {

using ElementRef = CountedRef<SetupElement>;

ElementRef makeElement(const wchar_t* name) {
    return makeCounted<SetupElement>(name, L"");
}

std::uint32_t referencesOf(const ElementRef& element) {
    element->addRef();
    return element->release();
}

TEST(SetupElement, IsRefusedASecondPlaceAndAPlaceBelowItself) {
    const auto root = makeElement(L"Root");
    const auto child = makeElement(L"Child");
    EXPECT_EQ(root->AddChild(child.get()), HostCode::success);
    for (const HostResult refused : {root->AddChild(child.get()), root->AddAttribute(child.get()),
                                     root->AddChild(root.get()), child->AddChild(root.get())}) {
        EXPECT_EQ(refused, HostCode::invalidArgument);
    }
    EXPECT_EQ(root->AddChild(nullptr), HostCode::invalidPointer);
    std::wstring text;
    ASSERT_EQ(takeFailure()->getDescription(&text), HostCode::success);
    EXPECT_EQ(text, L"there is no element to add");
    root->RemoveAttribute(child.get());
    root->RemoveChild(child.get());
    EXPECT_EQ(child->AddAttribute(root.get()), HostCode::success);
}

TEST(SetupElement, IsGivenBackOnceAndOutlivesItsParent) {
    auto root = makeElement(L"Root");
    const auto child = makeElement(L"Child");
    const auto attribute = makeElement(L"Attribute");
    root->AddChild(child.get());
    root->AddAttribute(attribute.get());
    EXPECT_EQ(referencesOf(root), 1U);  // children don't keep their parent
    EXPECT_EQ(referencesOf(child), 2U);
    CountedRef<HostElement> found;
    root->FindChild(L"Child", found.out());
    EXPECT_EQ(referencesOf(child), 3U);
    root->FindChild(L"Missing", found.out());
    EXPECT_TRUE(!found);
    root->GetChild(-1, found.out());
    EXPECT_TRUE(!found);
    root.reset();
    EXPECT_EQ(referencesOf(child) + referencesOf(attribute), 2U);
    child->GetParent(found.out());
    EXPECT_TRUE(!found);
    EXPECT_FALSE(attribute->isInTree());
}

TEST(SetupElement, TreeTooDeepToWalkIsRefusedWhicheverEndGrows) {
    const auto upper = makeElement(L"e");
    auto last = upper;
    for (std::size_t depth = 1; depth < SetupElement::maxDepth; ++depth) {
        const auto next = makeElement(L"e");
        ASSERT_EQ(last->AddChild(next.get()), HostCode::success);
        last = next;
    }
    EXPECT_EQ(last->AddChild(makeElement(L"e").get()), HostCode::invalidArgument);
    EXPECT_EQ(last->AddAttribute(makeElement(L"a").get()), HostCode::invalidArgument);
    EXPECT_EQ(makeElement(L"e")->AddChild(upper.get()), HostCode::invalidArgument);
    CountedRef<HostElement> copy;
    EXPECT_EQ(upper->Clone(copy.out()), HostCode::success);
}

TEST(SetupDocument, ValueAtItsDefaultIsLeftOutAndReadAsTheDefault) {
    const auto document = makeCounted<SetupDocument>(true);
    const auto element = makeElement(L"Element");
    std::wstring value;
    document->WriteValue(element.get(), L"Key", L"a", L"b");
    document->ReadValue(element.get(), L"Key", &value, L"b");
    EXPECT_EQ(value, L"a");
    document->WriteValue(element.get(), L"Key", nullptr, L"");
    EXPECT_TRUE(element->getContent().values.empty());
    document->ReadValue(element.get(), L"Key", &value, L"c");
    EXPECT_EQ(value, L"c");
    EXPECT_EQ(document->WriteValue(nullptr, L"Key", L"a", L"b"), HostCode::invalidPointer);
    EXPECT_EQ(document->ReadValue(nullptr, L"Key", &value, L"b"), HostCode::invalidPointer);
    EXPECT_EQ(value, L"c");
}

TEST(SetupDocument, ComesFromTheFactoryInTheModeAskedForAndHoldsItsRoot) {
    const auto factory = makeCounted<SetupDocumentFactory>();
    CountedRef<HostDocument> document;
    ASSERT_EQ(factory->createDocument(hostTrue, document.out()), HostCode::success);
    std::int32_t mode = 0;
    document->GetMode(&mode);
    EXPECT_EQ(mode, HostDocument::modeWriting);
    document->SetMode(1);  // only 65535 is true
    document->GetMode(&mode);
    EXPECT_EQ(mode, 0);
    CountedRef<HostElement> root;
    document->GetRootElement(root.out());
    EXPECT_TRUE(!root);
    const auto element = makeElement(L"Root");
    const auto child = makeElement(L"Child");
    element->AddChild(child.get());
    EXPECT_EQ(document->SetRootElement(child.get()), HostCode::invalidArgument);
    EXPECT_EQ(document->SetRootElement(element.get()), HostCode::success);
    EXPECT_EQ(referencesOf(element), 2U);
    document.reset();
    EXPECT_EQ(referencesOf(element), 1U);
}

}  // namespace
}  // namespace station
