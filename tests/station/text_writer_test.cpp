#include "station/cli/text_writer.h"

#include <fmt/format.h>
#include <unistd.h>

namespace {

using station::TextWriter;

class Pipe {
  public:
    Pipe() { EXPECT_EQ(pipe(ends.data()), 0); }
    ~Pipe() {
        closeEntry();
        close(ends[0]);
    }
    int entry() const { return ends[1]; }
    void closeEntry() { close(std::exchange(ends[1], -1)); }
    /// Up to where the writer closes it.
    std::string readAll() const {
        std::string text;
        std::array<char, 4096> part;
        for (ssize_t size = 1; size > 0; text.append(part.data(), static_cast<std::size_t>(size))) {
            size = std::max<ssize_t>(read(ends[0], part.data(), part.size()), 0);
        }
        return text;
    }

  private:
    std::array<int, 2> ends = {};
};

TEST(TextWriterTest, PipeThatNobodyReadsHoldsUpNobodyAndWhatIsNotShownIsTold) {
    Pipe pipe;
    constexpr int count = 3000;
    std::string shown;
    std::thread reader;
    {
        TextWriter writer;
        for (int i = 0; i < count; ++i) {
            writer.write(pipe.entry(), fmt::format("{:0>999}\n", i));
        }
        EXPECT_TRUE(writer.isBusy());
        { const TextWriter other; }  // ends at once, and the first one soon
        writer.finish();
        EXPECT_TRUE(writer.isBusy());
        reader = std::thread([&] { shown = pipe.readAll(); });
        while (writer.isBusy()) {
            writer.finish();
        }
        writer.write(pipe.entry(), "last\n");
        writer.finish();
        EXPECT_FALSE(writer.isBusy());
    }
    pipe.closeEntry();
    reader.join();
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

}  // namespace
