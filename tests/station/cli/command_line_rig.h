#pragma once

#include "station/cli/command_line.h"
#include "station/program.h"
#include "tests/support/temporary_folder.h"

/// A user at the command line, in a folder of his own in which nothing is registered.
class CommandLineTest : public testing::Test {
  protected:
    struct Answer {
        int code;
        std::string output;
        std::string errors;
    };

    CommandLineTest() {
        for (const char* variable :
             {"HOME", "XDG_DATA_HOME", "XDG_STATE_HOME", "XDG_CONFIG_HOME"}) {
            ::setenv(variable, path("home").c_str(), 1);
        }
        ::setenv("KESTROVA_REGISTRY", path("registry").c_str(), 1);
        ::unsetenv("STATE_DIRECTORY");
    }

    std::string path(const std::string& name) const { return folder.path() / name; }
    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(path(name)) << text;
        return path(name);
    }
    static Answer call(std::vector<std::string> words) {
        words.insert(words.begin(), "cmp-station");
        std::vector<char*> arguments;
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const int code = station::runProgram([&] {
            return station::executeCommandLine(static_cast<int>(words.size()), arguments.data());
        });
        return {code, testing::internal::GetCapturedStdout(),
                testing::internal::GetCapturedStderr()};
    }
    /// What is printed by a command that is to end well.
    static std::string good(const std::vector<std::string>& words) {
        const Answer answer = call(words);
        EXPECT_EQ(answer.code, 0) << testing::PrintToString(words) << answer.errors;
        return answer.output;
    }

    struct Refusal {
        std::vector<std::string> words;
        std::string text;  ///< part of what is said
        int code = 2;
    };
    static void expectRefusals(const std::vector<std::string>& command,
                               const std::vector<Refusal>& refusals) {
        for (const Refusal& refusal : refusals) {
            std::vector<std::string> words = command;
            words.insert(words.end(), refusal.words.begin(), refusal.words.end());
            const Answer answer = call(words);
            EXPECT_EQ(answer.code, refusal.code) << testing::PrintToString(words);
            EXPECT_THAT(answer.errors, testing::HasSubstr(refusal.text))
                << testing::PrintToString(words);
        }
    }

    const TemporaryFolder folder;
};
