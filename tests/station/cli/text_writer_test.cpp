#include "station/cli/text_writer.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "station/cli/live_view.h"
#include "tests/support/temporary_folder.h"

namespace {

using station::TextWriter;

TEST(TextWriterTest, PipeThatNobodyReadsHoldsUpNobodyAndWhatIsNotShownIsCounted) {
    std::array<int, 2> ends = {};
    ASSERT_EQ(pipe(ends.data()), 0);
    ASSERT_EQ(fcntl(ends[1], F_SETFL, O_NONBLOCK), 0) << "as another program may have left it";
    constexpr int count = 3000;
    std::string shown;
    std::thread reader;
    {
        TextWriter writer;
        for (int i = 0; i < count; ++i) {
            writer.write(ends[1], fmt::format("{:0>999}\n", i));
        }
        EXPECT_TRUE(writer.isBusy());
        { const TextWriter other; }  // ends at once, and the first one soon
        writer.finish();
        EXPECT_TRUE(writer.isBusy());
        reader = std::thread([&] { shown = contentOf("/dev/fd/" + std::to_string(ends[0])); });
        while (writer.isBusy()) {
            writer.finish();
        }
        writer.write(ends[1], "last\n");
        while (writer.isBusy()) {
            writer.finish();
        }
    }
    close(ends[1]);
    reader.join();
    close(ends[0]);
    std::istringstream lines(shown);
    std::string line;
    int next = 0;
    int notices = 0;
    while (std::getline(lines, line) && line != "last") {
        if (line[0] == '(') {
            next += std::stoi(line.substr(1));
            ++notices;
        } else {
            ASSERT_EQ(std::stoi(line), next++);
        }
    }
    EXPECT_EQ(next, count);
    EXPECT_GT(notices, 0);
    EXPECT_EQ(line, "last");
}

TEST(LiveViewTest, ProgressThatHasNotChangedIsNotShownAgain) {
    testing::internal::CaptureStderr();
    {
        station::LiveView view(station::LiveView::Form::Lines, STDOUT_FILENO);
        station::Summary summary;
        for (const double seconds : {4.0, 4.1, 5.0}) {  // the second after a stop
            summary.seconds = seconds;
            view.show(summary, {});
        }
    }
    const std::string shown = testing::internal::GetCapturedStderr();
    EXPECT_THAT(shown, testing::MatchesRegex("4 s: [^\n]*\n5 s: [^\n]*\n"));
}

}  // namespace
