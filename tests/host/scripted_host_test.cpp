#include "tests/support/scripted_host.h"

#include <gmock/gmock.h>

#include <cstring>
#include <vector>

#include "host/host_error.h"
#include "tests/support/scripted_variants.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ScriptedHostTest : public ::testing::Test {
  protected:
    ~ScriptedHostTest() override { EXPECT_THAT(host.script.referenceFaults(), IsEmpty()); }

    /// Four calls, two of which hand over an object.
    void useHost() {
        const CountedRef<HostApp> app(&host.app);
        const auto data = hostObject(app, &HostApp::getData);
        callHost(data, &HostData::setStartTime, 1.5);
        const auto groups = hostObject(data, &HostData::getChannelGroups);
        callHost(app, &HostApp::writeError, L"\x00FC");
    }

    ScriptedHost host;
};

TEST_F(ScriptedHostTest, CallsAreListedInOrderWithTheirArguments) {
    useHost();
    EXPECT_THAT(host.script.operations(),
                ElementsAre("HostApp::getData", "HostData::setStartTime",
                            "HostData::getChannelGroups", "HostApp::writeError"));
    EXPECT_THAT(host.script.calls(),
                ElementsAre("HostApp::getData()", "HostData::setStartTime(1.5)",
                            "HostData::getChannelGroups()", "HostApp::writeError(\"\xC3\xBC\")"));
    host.script.forget();
    auto& channel = host.makeChannel();
    auto& document = host.makeDocument(L"Setup", true);
    const std::int32_t indices[] = {1, -2};
    channel.setIndices(indices, 2);
    channel.setUsed(hostTrue);
    channel.setName(nullptr);
    channel.persistSetup(&document, document.root, hostFalse);
    host.groupOfPlugins.setChannelGroupName(L"{id}", 2, indices, L"CAN");
    EXPECT_THAT(host.script.calls(),
                ElementsAre("HostChannel::setIndices([1 -2])", "HostChannel::setUsed(true)",
                            "HostChannel::setName(null)",
                            "HostChannel::persistSetup(HostDocument, HostElement, false)",
                            "HostPluginGroup::setChannelGroupName(\"{id}\", 2, [1 -2], \"CAN\")"));
}

TEST_F(ScriptedHostTest, EachCallCanBeMadeToFailInTurn) {
    std::size_t failures = 0;
    for (std::size_t number = 1; host.script.faultsMet() == number - 1; ++number) {
        host.data.startTime = 0.0;
        host.script.failCall(number, HostCode::failed);
        try {
            useHost();
        } catch (const HostCallException& error) {
            ++failures;
            EXPECT_EQ(error.getCode(), HostCode::failed);
            EXPECT_EQ(host.data.startTime, number > 2 ? 1.5 : 0.0) << "the failed call had effect";
        }
    }
    EXPECT_EQ(failures, 4U);
    EXPECT_EQ(host.app.errors.size(), 1U) << "the last round had no failure";
}

TEST_F(ScriptedHostTest, NullIsMetOnlyWhereAnObjectIsHandedOver) {
    for (std::size_t number = 1; number <= 4; ++number) {
        host.script.nullCall(number);
        try {
            useHost();
        } catch (const HostCallException& error) {
            EXPECT_EQ(error.getCode(), HostCode::invalidPointer);
            EXPECT_EQ(number, 1U);
        }
        host.script.heal();
    }
    EXPECT_EQ(host.script.faultsMet(), 2U);
}

TEST_F(ScriptedHostTest, SamplesLandInTheBuffersOfTheirChannel) {
    CountedRef<HostChannel> channel;
    const std::int32_t index = 3;
    ASSERT_EQ(host.groupOfPlugins.mountChannels(L"{id}", 1, &index, channel.out()), 0);
    ScriptedChannel& mounted = *host.groupOfPlugins.mounted.at(0);
    mounted.bufferSize = 2;
    callHost(channel, &HostChannel::setDataType, 3);
    callHost(channel, &HostChannel::setAsync, hostTrue);
    for (const int value : {1, 2, 3}) {
        const auto position = hostValue(channel, &HostChannel::getWritePosition);
        auto* const data =
            static_cast<std::uint8_t*>(hostValue(channel, &HostChannel::getDataBuffer));
        std::memset(data + 2 * position, value, 2);
        hostValue(channel, &HostChannel::getTimeBuffer)[position] = value;
        callHost(channel, &HostChannel::advanceWritePosition, 1);
    }
    EXPECT_THAT(mounted.sampleAt(0), ElementsAre(3, 3)) << "the third wraps";
    EXPECT_THAT(mounted.sampleAt(1), ElementsAre(2, 2));
    EXPECT_EQ(mounted.timeAt(0), 3.0);
    const std::int32_t whole[] = {8, 0, 3};
    EXPECT_EQ(hostObject(&host.data, &HostData::findChannel, whole, 3), channel);
    callHost(&host.groupOfPlugins, &HostPluginGroup::unmountChannel, channel.get());
    EXPECT_FALSE(hostObject(&host.data, &HostData::findChannel, whole, 3));
    EXPECT_LT(host.groupOfPlugins.unmountChannel(channel.get()), 0);
}

TEST_F(ScriptedHostTest, DocumentKeepsItsTree) {
    auto& document = host.makeDocument(L"Setup", true);
    HostElement* const root = document.root;
    const auto child = hostObject(&document, &HostDocument::CreateElement, L"Clock", L"text");
    callHost(root, &HostElement::AddChild, child.get());
    EXPECT_LT(root->AddChild(child.get()), 0) << "it hangs in two places";
    EXPECT_LT(root->AddChild(nullptr), 0);
    const auto id = hostObject(&document, &HostDocument::CreateElement, L"Id", L"0");
    callHost(child, &HostElement::AddAttribute, id.get());
    callHost(&document, &HostDocument::WriteValue, child.get(), L"Mode", L"12", L"2");
    callHost(&document, &HostDocument::WriteValue, child.get(), L"Source", L"False", L"False");
    constexpr auto tree = "Setup\n  Clock \"text\" @Id=\"0\" Mode=\"12\"\n";
    EXPECT_EQ(document.root->asText(), tree);

    const auto copy = hostObject(child, &HostElement::Clone);
    callHost(copy, &HostElement::ClearAttributes);
    callHost(&document, &HostDocument::WriteValue, copy.get(), L"Mode", L"2", L"2");
    EXPECT_EQ(document.root->asText(), tree) << "the copy isn't one";
    EXPECT_FALSE(hostObject(copy, &HostElement::GetParent));
    EXPECT_EQ(hostObject(child, &HostElement::GetParent).get(), root);

    std::wstring mode = L"s";
    callHost(&document, &HostDocument::ReadValue, copy.get(), L"Mode", &mode, L"7");
    EXPECT_EQ(mode, L"7");
    callHost(root, &HostElement::RemoveChild, child.get());
    EXPECT_EQ(document.root->asText(), "Setup\n");
    EXPECT_FALSE(hostObject(child, &HostElement::GetParent));
}

TEST_F(ScriptedHostTest, ChannelKeepsItsDescriptionInTheDocument) {
    auto& document = host.makeDocument(L"Output", true);
    auto& saved = host.makeChannel({8, 0, 2});
    saved.name = L"CAN \x00E4";
    saved.color = 0x00FF00;
    ASSERT_EQ(saved.persistSetup(&document, document.root, hostTrue), 0);
    EXPECT_EQ(document.root->find(L"OutputChannel")->find(L"Index")->text, L"8:0;2");
    auto& loaded = host.makeChannel();
    ASSERT_EQ(loaded.persistSetup(&document, document.root, hostFalse), 0);
    EXPECT_EQ(loaded.name, saved.name);
    EXPECT_EQ(loaded.color, saved.color);
}

TEST_F(ScriptedHostTest, ArraysRefuseIndicesOutside) {
    auto& array = host.script.make<ScriptedVariantArray>(
        std::vector{variantOf(true), variantOf(&host.app)}, 5);
    HostVariant element;
    for (const std::int32_t index : {4, 7, -1, 0}) {
        EXPECT_EQ(array.getElement(index, &element), HostCode::invalidArgument) << index;
    }
    EXPECT_EQ(array.getElement(6, &element), 0);
    EXPECT_EQ(element.object, &host.app);
    CountedRef<HostVariantArray> copy;
    ASSERT_EQ(array.copy(copy.out()), 0);
    array.elements.clear();
    EXPECT_EQ(copy->getElement(5, &element), 0);
    EXPECT_EQ(element.boolean, hostTrue);
}

}  // namespace
