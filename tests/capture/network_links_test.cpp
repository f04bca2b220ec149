#include "capture/network_links.h"

#include <linux/if_arp.h>

#include "capture/capture_messages.h"

namespace {

using ::testing::ElementsAre;

constexpr int ether = ARPHRD_ETHER;
constexpr int tunnel = ARPHRD_TUNNEL;

TEST(NetworkLinksTest, OnlyWhatIsShownByOtherEthernetInterfacesTooIsRepeated) {
    const NetworkLinks links{
        {1, {"lo", ARPHRD_LOOPBACK, true, "", 0, 0}}, {2, {"eth1", ether, true, "", 10, 0}},
        {3, {"eth2", ether, false, "", 10, 0}},       {4, {"eth3", ether, true, "veth", 0, 9}},
        {5, {"tun0", tunnel, true, "", 13, 0}},       {6, {"eth4", ether, true, "", 13, 0}},
        {7, {"eth5", ether, true, "", 14, 0}},        {10, {"br0", ether, true, "bridge", 0, 0}},
        {11, {"br1", ether, true, "bridge", 0, 0}},   {12, {"mac0", ether, true, "macvlan", 0, 4}},
        {13, {"team0", ether, true, "team", 0, 0}},   {14, {"bond0", ether, true, "bond", 15, 0}},
        {15, {"br2", ether, true, "bridge", 0, 0}},   {16, {"vlan5", ether, true, "vlan", 0, 4}},
        {17, {"mac1", ether, true, "macvlan", 0, 0}}, {18, {"vrf0", ether, true, "vrf", 0, 0}},
    };
    std::map<std::string, std::vector<std::string>> found;
    for (const auto& [index, link] : links) {
        if (const auto repeated = findRepeated(links, index); !repeated.empty()) {
            found[link.name] = repeated;
        }
    }
    const std::map<std::string, std::vector<std::string>> expected{
        {"br0", {"eth1", "eth2"}}, {"mac0", {"eth3"}}, {"bond0", {"eth5"}}, {"br2", {"bond0"}}};
    EXPECT_EQ(found, expected) << "not a bridge without ports, one with other frames, a VLAN, nor "
                                  "one on an interface elsewhere";
    const auto isOneLost = [](int index) { return index != 2 && index != 14; };
    EXPECT_TRUE(findRepeated(links, 10, isOneLost).empty()) << "eth1 isn't captured";
    EXPECT_EQ(findRepeated(links, 15, isOneLost).size(), 1U) << "bond0 isn't, but eth5 is";
    const auto isDownLost = [](int index) { return index != 3; };
    EXPECT_EQ(findRepeated(links, 10, isDownLost).size(), 2U) << "eth2 is down";
}

TEST(LinkEventsTest, WaitLastsUntilSomethingHappensOrItIsWoken) {
    using std::chrono::steady_clock, std::chrono::milliseconds;
    LinkEvents events;
    bool happened = true;
    for (int tries = 0; tries < 20 && happened; ++tries) {  // on this machine something may happen
        const auto begun = steady_clock::now();
        happened = events.wait(milliseconds(20));
        EXPECT_TRUE(happened || steady_clock::now() - begun >= milliseconds(19));
    }
    EXPECT_FALSE(happened);
    events.wake();
    events.wait(std::chrono::minutes(10));
}

TEST(CaptureMessagesTest, TheSameIsReportedOnceAnInterfaceInARowAndTooMuchIsSaid) {
    CaptureMessages messages;
    for (const char* const text : {"a fails", "a fails", "a works", "a fails\x1B[\xFF"}) {
        messages.report("a", text);
    }
    messages.report("b", "a works");
    std::vector<std::string> texts;
    for (const auto& message : messages.take()) {
        texts.push_back(message.text);
    }
    EXPECT_THAT(texts, ElementsAre("a fails", "a works", "a fails?[?", "a works"));
    for (int i = 0; i < 3000; ++i) {
        messages.report(std::to_string(i), "text");
    }
    const auto all = messages.take();
    EXPECT_EQ(all.size(), 1000U);
    EXPECT_EQ(all.back().text, "more has happened to the interfaces than can be reported");
}

}  // namespace
