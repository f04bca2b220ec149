#include "capture/late_handle.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <system_error>
#include <utility>

namespace {

using namespace std::chrono_literals;

/// How often the watch looks for interfaces that have ended, and tries again to open the others.
constexpr auto lookPeriod = 500ms;

}  // namespace

std::unique_ptr<LateHandle> LateHandle::open(const LateCapture& wanted,
                                             std::shared_ptr<OpenLinks> openLinks) {
    try {
        std::unique_ptr<LateHandle> handle(new LateHandle(wanted, std::move(openLinks)));
        handle->Start();
        return handle;
    } catch (const std::system_error& error) {
        wanted.messages->report(
            "", std::string("interfaces that appear later aren't captured: ") + error.what());
        return nullptr;
    }
}

LateHandle::LateHandle(const LateCapture& wanted, std::shared_ptr<OpenLinks> openLinks)
    : selection(wanted.selection),
      settings{"", wanted.snapLength, wanted.promiscuous},
      timeoutMs(wanted.timeoutMs),
      messages(*wanted.messages),
      links(std::move(openLinks)) {
    for (const CaptureHandle* const handle : wanted.opened) {
        const auto& live = static_cast<const LiveHandle&>(*handle);
        captured[live.getLink()->index] = {live.getName(), live.getLink()};
    }
}

LateHandle::~LateHandle() {
    RequestStop();
    events.wake();
    Stop();
    std::vector<std::unique_ptr<CaptureHandle>> all;
    const LockGuard guard(lock);
    for (Handles* handles : {&reading, &opened, &ended}) {
        std::move(handles->begin(), handles->end(), std::back_inserter(all));
    }
    closeTogether(all);
}

std::int32_t LateHandle::next(CapturedFrame& frame) {
    if (hasOpened) {
        takeOver();
    }
    std::int32_t result = nextAtOnce(frame);
    if (result == timeout && hadNothing) {
        links->wait(timeoutMs);
        result = nextAtOnce(frame);
    }
    hadNothing = result == timeout;
    return result;
}

/// Each is read until it has nothing, as the interfaces of a pass are.
std::int32_t LateHandle::nextAtOnce(CapturedFrame& frame) {
    while (position < reading.size()) {
        LiveHandle& handle = *reading[position];
        if (handle.nextAtOnce(frame) == gotFrame) {
            return gotFrame;
        }
        if (handle.getLink()->isEnded) {
            giveBack();
        } else {
            ++position;
        }
    }
    position = 0;
    return timeout;
}

void LateHandle::takeOver() {
    const LockGuard guard(lock);
    for (auto& handle : opened) {
        handle->enterWaits();
        reading.push_back(std::move(handle));
    }
    opened.clear();
    hasOpened = false;
}

void LateHandle::giveBack() {
    const auto place = reading.begin() + static_cast<std::ptrdiff_t>(position);
    countsBefore += (*place)->getCounts();
    const LockGuard guard(lock);
    ended.push_back(std::move(*place));
    reading.erase(place);
}

SystemCounts LateHandle::getCounts() {
    SystemCounts sum = countsBefore;
    for (const auto& handle : reading) {
        sum += handle->getCounts();
    }
    return sum;
}

void LateHandle::Run() {
    SetThreadName("cmp-interfaces");
    bool isDone = look();
    while (!IsStopRequested()) {
        const bool hasChanged = events.wait(lookPeriod);
        closeEnded();
        const bool hasEnded = std::any_of(captured.begin(), captured.end(), [](const auto& entry) {
            return entry.second.link->isEnded.load();
        });
        if (!IsStopRequested() && (hasChanged || hasEnded || !isDone)) {
            isDone = look();
        }
    }
}

/// False if there is something to be tried again.
bool LateHandle::look() {
    NetworkLinks present;
    std::string error;
    if (!readNetworkLinks(present, error)) {
        messages.report("", error);
        return false;
    }
    forgetEnded(present);
    reportUpAndDown(present);
    // First those that others repeat: one that can't be opened keeps what repeats it.
    const bool isDone = openMissing(present, false);
    return openMissing(present, true) && isDone;
}

bool LateHandle::openMissing(const NetworkLinks& present, bool repeatOthers) {
    bool isDone = true;
    for (const auto& [index, link] : present) {
        const bool isSelected =
            std::find(selection.begin(), selection.end(), link.name) != selection.end();
        if (isSelected && !link.isEthernet()) {
            messages.report(link.name, otherKindText(link.name));
        }
        if (!link.isEthernet() || IsStopRequested() ||
            ::findRepeated(present, index).empty() == repeatOthers) {
            continue;
        }
        const auto place = captured.find(index);
        if (!selection.empty()) {
            if (!isSelected) {
                continue;
            }
        } else if (const auto repeated = findRepeated(present, index); !repeated.empty()) {
            messages.reportHarmless(link.name, leftOutText(link.name, repeated));
            if (place != captured.end()) {
                place->second.link->isEnded = true;
                captured.erase(place);
            }
            continue;
        }
        if (place == captured.end() && link.isUp) {
            isDone = openLink(link) && isDone;
        }
    }
    return isDone;
}

std::vector<std::string> LateHandle::findRepeated(const NetworkLinks& present, int index) const {
    return ::findRepeated(present, index, [this](int other) { return captured.count(other) != 0; });
}

void LateHandle::forgetEnded(const NetworkLinks& present) {
    for (auto entry = captured.begin(); entry != captured.end();) {
        const std::string& name = entry->second.name;
        const auto& link = entry->second.link;
        const bool isGone = present.count(entry->first) == 0;
        if (isGone) {  // its handle has still to be read to its end
            messages.report(name, "interface " + name + " went away");
        } else if (link->isEnded) {
            messages.report(name, "interface " + name + " can't be read any more");
        }
        entry = isGone || link->isEnded ? captured.erase(entry) : std::next(entry);
    }
}

/// One that is down stays open: it is read on when it is up again.
void LateHandle::reportUpAndDown(const NetworkLinks& present) {
    for (auto& [index, entry] : captured) {
        const bool isUp = present.at(index).isUp;
        if (isUp && !entry.isUp) {
            messages.reportHarmless(entry.name, "interface " + entry.name + " is up again");
        } else if (!isUp && entry.isUp) {
            messages.report(entry.name, "interface " + entry.name +
                                            " went down: nothing comes in until it is up again");
        }
        entry.isUp = isUp;
    }
}

/// True if it is open then.
bool LateHandle::openLink(const NetworkLink& wanted) {
    PcapRing::Settings its = settings;
    its.interface = wanted.name;
    std::string error;
    auto handle = LiveHandle::open(its, timeoutMs, links, error);
    if (!handle) {
        messages.report(wanted.name, notOpenedText(error));
        return false;
    }
    // By its name it may be another one meanwhile.
    const auto& link = handle->getLink();
    if (!captured.try_emplace(link->index, Captured{wanted.name, link}).second) {
        return false;
    }
    messages.report(wanted.name, "interface " + wanted.name + " is captured from now on");
    const LockGuard guard(lock);
    opened.push_back(std::move(handle));
    hasOpened = true;
    return true;
}

void LateHandle::closeEnded() {
    Handles closing;
    {
        const LockGuard guard(lock);
        closing.swap(ended);
    }
}
