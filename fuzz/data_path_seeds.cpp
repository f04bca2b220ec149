#include <cstdio>
#include <fstream>

#include "tests/support/sample_frames.h"

// Writes the seeds of the fuzz target for the way of a frame into a folder: a file for each sample
// frame, and one with all of them in a row.

int main(int argumentCount, char** arguments) {
    if (argumentCount != 2) {
        std::fprintf(stderr, "Usage: %s FOLDER\n", arguments[0]);
        return 1;
    }
    const auto write = [&](const std::string& name, const wire::Bytes& bytes) {
        std::ofstream file(std::string(arguments[1]) + '/' + name, std::ios::binary);
        file.write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
        return file.flush().good();
    };
    wire::Bytes all;
    bool written = true;
    for (const wire::SampleFrame& sample : wire::sampleFrames()) {
        wire::Bytes one;
        wire::put(one, sample.bytes.size(), 2);
        wire::put(one, sample.bytes);
        wire::put(all, one);
        written = write(sample.name, one) && written;
    }
    if (!write("all_in_a_row", all) || !written) {
        std::fprintf(stderr, "Can't write to %s. Does the folder exist?\n", arguments[1]);
        return 2;
    }
}
