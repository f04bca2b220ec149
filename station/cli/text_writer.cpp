#include "station/cli/text_writer.h"

#include <fmt/format.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <thread>
#include <utility>

#include "core/mutex.h"
#include "station/terminal_text.h"

namespace station {
namespace {

constexpr std::size_t mostWaitingBytes = 1024 * 1024;
/// Less than a program that was asked to stop has for it, see `StopSignal`.
constexpr auto endPatience = std::chrono::milliseconds(200);

}  // namespace

struct TextWriter::Shared {
    struct Text {
        int descriptor;
        std::string text;
    };

    void write(int descriptor, std::string text) CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        if (bytes != 0 && bytes + text.size() > mostWaitingBytes) {
            ++notShown;
            return;
        }
        if (notShown != 0) {
            text = fmt::format("({} texts were not shown: nobody read them)\n", notShown) + text;
            notShown = 0;
        }
        bytes += text.size();
        texts.push_back({descriptor, std::move(text)});
        changed.notify_all();
    }

    /// The thread's work, until `isEnded` and all is written.
    void run() CMP_EXCLUDES(lock) {
        while (waitForText()) {
            writeAll(current.descriptor, current.text);  // a reader that has gone is passed over
            const LockGuard guard(lock);
            bytes -= current.text.size();
            changed.notify_all();
        }
    }
    bool waitForText() CMP_EXCLUDES(lock) {
        const LockGuard guard(lock);
        while (texts.empty()) {
            if (isEnded) {
                return false;
            }
            changed.wait(lock);
        }
        current = std::move(texts.front());
        texts.pop_front();
        return true;
    }

    Mutex lock;
    std::condition_variable_any changed;
    std::deque<Text> texts CMP_GUARDED_BY(lock);
    std::size_t bytes CMP_GUARDED_BY(lock) = 0;  ///< that wait or are being written
    std::size_t notShown CMP_GUARDED_BY(lock) = 0;
    bool isEnded CMP_GUARDED_BY(lock) = false;
    Text current = {};  ///< the thread's own
};

TextWriter::TextWriter() : shared(std::make_shared<Shared>()) {
    std::thread([held = shared] { held->run(); }).detach();
}

TextWriter::~TextWriter() {
    finish();
    const LockGuard guard(shared->lock);
    shared->isEnded = true;
    shared->changed.notify_all();
}

void TextWriter::write(int descriptor, std::string text) {
    shared->write(descriptor, std::move(text));
}

bool TextWriter::isBusy() const {
    const LockGuard guard(shared->lock);
    return shared->bytes != 0;
}

void TextWriter::finish() {
    const LockGuard guard(shared->lock);
    while (shared->bytes != 0 &&
           shared->changed.wait_for(shared->lock, endPatience) == std::cv_status::no_timeout) {
    }
}

}  // namespace station
