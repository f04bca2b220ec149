#include "tests/support/call_script.h"

#include "tests/support/scripted_object.h"

CallScript::CallScript() = default;
CallScript::~CallScript() = default;

std::vector<std::string> CallScript::operations() const {
    const LockGuard guard(lock);
    std::vector<std::string> names;
    for (const Call& call : listed) {
        names.push_back(call.operation);
    }
    return names;
}

std::vector<std::string> CallScript::calls() const {
    const LockGuard guard(lock);
    std::vector<std::string> texts;
    for (const Call& call : listed) {
        texts.push_back(call.operation + '(' + call.arguments + ')');
    }
    return texts;
}

void CallScript::forget() {
    const LockGuard guard(lock);
    listed.clear();
}

void CallScript::failCall(std::size_t numberFromNow, HostResult code) {
    const LockGuard guard(lock);
    faultsByNumber[number + numberFromNow] = {code, false};
}

void CallScript::failOperation(const std::string& operation, HostResult code) {
    const LockGuard guard(lock);
    faultsByName[operation] = {code, false};
}

void CallScript::nullCall(std::size_t numberFromNow) {
    const LockGuard guard(lock);
    faultsByNumber[number + numberFromNow] = {HostCode::success, true};
}

void CallScript::nullOperation(const std::string& operation) {
    const LockGuard guard(lock);
    faultsByName[operation] = {HostCode::success, true};
}

void CallScript::before(const std::string& operation, std::function<void()> action) {
    const LockGuard guard(lock);
    actions[operation] = std::move(action);
}

std::function<void()> CallScript::actionBefore(const std::string& operation) const {
    const LockGuard guard(lock);
    const auto found = actions.find(operation);
    return found == actions.end() ? nullptr : found->second;
}

void CallScript::heal() {
    const LockGuard guard(lock);
    actions.clear();
    faultsByNumber.clear();
    faultsByName.clear();
}

std::size_t CallScript::faultsMet() const {
    const LockGuard guard(lock);
    return faults;
}

std::vector<std::string> CallScript::referenceFaults() const {
    const LockGuard guard(lock);
    std::vector<std::string> texts;
    for (const ScriptedObject* object : objects) {
        if (object->isOverReleased()) {
            texts.push_back(object->kind + ": released once too often");
        } else if (object->references() != 0) {
            texts.push_back(object->kind + ": " + std::to_string(object->references()) +
                            " references kept");
        }
    }
    return texts;
}

CallScript::Verdict CallScript::enter(const std::string& operation, const std::string& arguments,
                                      bool handsObject) {
    if (const auto action = actionBefore(operation)) {
        action();
    }
    const LockGuard guard(lock);
    listed.push_back({operation, arguments});
    ++number;
    return takeFault(operation, handsObject);
}

HostResult CallScript::enterQuery(const std::string& operation) {
    const LockGuard guard(lock);
    const auto ordered = faultsByName.find(operation);
    if (ordered == faultsByName.end()) {
        return HostCode::success;
    }
    ++faults;
    return ordered->second.code;
}

CallScript::Verdict CallScript::takeFault(const std::string& operation, bool handsObject) {
    Verdict verdict;
    if (const auto byName = faultsByName.find(operation); byName != faultsByName.end()) {
        verdict = byName->second;
    }
    if (const auto byNumber = faultsByNumber.find(number); byNumber != faultsByNumber.end()) {
        verdict = byNumber->second;
    }
    verdict.handsNull = verdict.handsNull && handsObject;
    if (verdict.code < 0 || verdict.handsNull) {
        ++faults;
    }
    return verdict;
}

void CallScript::attend(ScriptedObject* object) {
    const LockGuard guard(lock);
    objects.push_back(object);
}

void CallScript::leave(ScriptedObject* object) {
    const LockGuard guard(lock);
    objects.erase(std::remove(objects.begin(), objects.end(), object), objects.end());
}
