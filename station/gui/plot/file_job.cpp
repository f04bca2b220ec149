#include "station/gui/plot/file_job.h"

#include <chrono>
#include <utility>

namespace station {

FileJob::~FileJob() {
    if (!thread.joinable()) {
        return;
    }
    state->isStopped = true;
    constexpr int waits = 200;
    constexpr auto wait = std::chrono::milliseconds(10);
    for (int i = 0; i < waits && !state->isDone; ++i) {
        std::this_thread::sleep_for(wait);
    }
    if (state->isDone) {
        thread.join();
    } else {
        thread.detach();
    }
}

void FileJob::start(Work work) {
    state = std::make_shared<State>();
    thread = std::thread([work = std::move(work), shared = state] {
        shared->result = work(shared->isStopped);
        shared->isDone = true;
    });
}

std::optional<QString> FileJob::takeResult() {
    if (!thread.joinable() || !state->isDone) {
        return std::nullopt;
    }
    thread.join();
    return state->result;
}

}  // namespace station
