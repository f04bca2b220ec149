#include <arpa/inet.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <future>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "core/descriptor.h"
#include "station/serve/bus_server.h"

namespace station {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::Le;

std::string textOf(const CanFrame& frame, std::int64_t time) {
    std::string text;
    appendFrameText(text, time, CanRecord(&frame));
    return text;
}

TEST(BusText, HasIdentifierTimeAndDataAsClientsReadThem) {
    CanFrame frame;
    frame.id = 0x1A2;
    EXPECT_EQ(textOf(frame, 1'700'000'000'123'456'789), "< frame 1A2 1700000000.123456  >\n");
    EXPECT_EQ(textOf(frame, -1), "< frame 1A2 0000000000.000000  >\n");
    frame.extended = 1;
    frame.length = 255;
    EXPECT_EQ(textOf(frame, 0),
              "< fdframe 000001A2 00 0000000000.000000 " + std::string(128, '0') + " >\n");
}

TEST(CommandReader, FindsCommandsInPiecesAndGivesUpOnWhatIsNone) {
    CommandReader reader;
    std::vector<std::string> commands;
    for (const char c : std::string(" < open  a >\n<echo>< rawmode\t>")) {
        reader.add({&c, 1});
        while (const auto command = reader.take()) {
            commands.push_back(*command);
        }
    }
    EXPECT_THAT(commands, ElementsAre("open a", "echo", "rawmode"));
    EXPECT_FALSE(reader.isBroken());
    for (const std::string& text :
         {std::string("x"), "< " + std::string(300, 'x'), "< " + std::string(300, 'x') + " >"}) {
        CommandReader broken;
        broken.add(text);
        EXPECT_FALSE(broken.take());
        EXPECT_TRUE(broken.isBroken()) << text;
    }
}

/// A connection to the server, and what came on it.
class Reader {
  public:
    explicit Reader(const sockaddr_in& address) : socket(::socket(AF_INET, SOCK_STREAM, 0)) {
        EXPECT_EQ(
            ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            0);
    }
    /// What came up to there, or until the connection is closed.
    std::string readUntil(const std::string& end) {
        std::array<char, 4096> bytes;  // one at a time would be too slow for the server's patience
        std::size_t found = text.find(end, taken);
        for (ssize_t count = 1; count > 0 && found == std::string::npos;) {
            count = ::recv(socket.get(), bytes.data(), bytes.size(), 0);
            text.append(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
            found = text.find(end, taken);
        }
        taken = found == std::string::npos ? text.size() : found + end.size();
        return text.substr(0, taken);
    }
    void ask(const std::string& command, const std::string& answer) {
        ASSERT_EQ(::send(socket.get(), command.data(), command.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(command.size()));
        EXPECT_THAT(readUntil(answer), HasSubstr(answer));
    }

  private:
    const Descriptor socket;
    std::string text;
    std::size_t taken = 0;  ///< of it
};

TEST(BusServer, CutsOffWhatItsThreadOrItsReaderCannotKeepAndSaysSo) {
    const CanFrame frame;
    for (const auto& [mostPassed, mostWaiting, least] :
         {std::tuple{0UL, 1000UL, 1UL}, std::tuple{100UL, 100UL, 4UL}}) {
        BusServerSettings settings;
        settings.address = {AF_INET, htons(29540), {htonl(INADDR_LOOPBACK)}, {}};
        settings.mostPassed = mostPassed;
        settings.mostWaiting = mostWaiting;
        BusServer server(settings);
        server.begin({{"Doors", BusType::Lin}, {"Front", BusType::Can}});
        Reader reader(settings.address);
        reader.ask("< open Front >< rawmode >", "< ok >< ok >");
        std::uint64_t given = 0;
        while (server.summarize().cutOff == 0) {  // what the thread fetches in two parts has room
            for (int i = 0; i < 5; ++i, ++given) {
                server.onMessage(0, 0, &frame, sizeof frame);
                server.onMessage(1, 0, &frame, sizeof frame);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        const std::string told = reader.readUntil(" frames lost >");
        server.end();
        const std::uint64_t lost = server.summarize().lost;
        EXPECT_THAT(told, HasSubstr(fmt::format("< error slow reader, {} frames lost >", lost)));
        EXPECT_THAT(lost, AllOf(Ge(least), Le(given)));
        EXPECT_EQ(server.summarize().cutOff, 1U);
        EXPECT_THAT(server.takeTexts(), ElementsAre(HasSubstr("of bus Front was too slow")));
    }
}

TEST(BusServer, SendsAtItsEndWhatWaits) {
    const CanFrame frame;
    BusServerSettings settings;
    settings.address = {AF_INET, htons(29540), {htonl(INADDR_LOOPBACK)}, {}};
    BusServer server(settings);
    server.begin({{"Front", BusType::Can}});
    Reader reader(settings.address);
    reader.ask("< open Front >< rawmode >", "< ok >< ok >");
    constexpr int messages = 20'000;
    for (int i = 0; i < messages; ++i) {
        server.onMessage(0, 0, &frame, sizeof frame);
    }
    auto text = std::async(std::launch::async, [&] { return reader.readUntil("nothing"); });
    server.end();
    EXPECT_EQ(std::ranges::count(text.get(), '>'), 3 + messages);
    EXPECT_EQ(server.summarize().sent, static_cast<std::uint64_t>(messages));
}

TEST(BusServer, CountsAtItsEndWhatItsReaderDoesNotTake) {
    const CanFrame frame;
    BusServerSettings settings;
    settings.address = {AF_INET, htons(29540), {htonl(INADDR_LOOPBACK)}, {}};
    constexpr std::uint64_t messages = 300'000;
    settings.mostWaiting = std::size_t{64} << 20U;
    settings.mostPassed = messages;
    BusServer server(settings);
    server.begin({{"Front", BusType::Can}});
    Reader reader(settings.address);
    reader.ask("< open Front >< rawmode >", "< ok >< ok >");
    for (std::uint64_t i = 0; i < messages; ++i) {
        server.onMessage(0, 0, &frame, sizeof frame);
    }
    server.end();
    const ServeSummary counts = server.summarize();
    EXPECT_EQ(counts.cutOff, 1U);
    EXPECT_THAT(counts.sent + counts.lost, AllOf(Ge(messages - 1), Le(messages))) << "one is cut";
}

}  // namespace
}  // namespace station
