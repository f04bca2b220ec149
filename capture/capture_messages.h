#pragma once

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "core/mutex.h"

/// Why an interface isn't captured on. `error` names it.
inline std::string notOpenedText(const std::string& error) {
    return error + "; the interface isn't captured until it can be opened";
}
inline std::string leftOutText(const std::string& name, const std::vector<std::string>& repeated) {
    std::string text = "interface " + name + " is left out, as it only repeats ";
    for (const std::string& other : repeated) {
        text += (&other == &repeated.front() ? "" : ", ") + other;
    }
    return text;
}

inline std::string otherKindText(const std::string& name) {
    return "interface " + name + " carries no Ethernet frames: nothing is captured on it";
}

/// What the user must know of the network interfaces, as sentences, until somebody asks. Any
/// thread; nothing is reported for a frame.
class CaptureMessages {
  public:
    struct Message {
        std::string text;
        bool isHarmless = false;  ///< no frame can be missing by it
    };

    /// Forgets what was reported last about that interface, so that it is reported at each attempt.
    void report(const std::string& interface, std::string text) {
        add(interface, {std::move(text)});
    }
    void reportHarmless(const std::string& interface, std::string text) {
        add(interface, {std::move(text), true});
    }

    /// Those since the last call.
    std::vector<Message> take() {
        const LockGuard guard(lock);
        return std::exchange(waiting, {});
    }

    void clear() {
        const LockGuard guard(lock);
        waiting.clear();
        latest.clear();
    }

  private:
    static constexpr std::size_t most = 1000;

    void add(const std::string& interface, Message message) {
        std::string& text = message.text;
        // A name may hold any bytes.
        std::replace_if(
            text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
        const LockGuard guard(lock);
        std::string& last = latest[interface];
        if (std::exchange(last, text) == text) {
            return;
        }
        if (waiting.size() < most) {
            waiting.push_back(std::move(message));
        } else {
            waiting.back() = {"more has happened to the interfaces than can be reported"};
        }
        if (latest.size() > most) {  // interfaces that come and go have names without end
            latest.clear();
        }
    }

    Mutex lock;
    std::vector<Message> waiting CMP_GUARDED_BY(lock);
    std::map<std::string, std::string> latest CMP_GUARDED_BY(lock);  ///< by interface
};
