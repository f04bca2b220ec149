#pragma once

#include <cstddef>
#include <typeinfo>

#include "core/mutex.h"
#include "host/host_object.h"

/// What a script knows of one object: the name of its interface, and how many references the code
/// under test holds. The script itself holds none, and keeps the object by other means.
class ScriptedObject {
  public:
    explicit ScriptedObject(const std::type_info& interface) : kind(nameOf(interface)) {}
    virtual ~ScriptedObject() = default;
    ScriptedObject(const ScriptedObject&) = delete;
    ScriptedObject& operator=(const ScriptedObject&) = delete;

    std::int64_t references() const { return referenceCount; }
    /// "HostChannel: 2 references kept", or that too many were given back; empty if all is well.
    std::string referenceFault() const {
        if (overReleased) {
            return kind + ": released once too often";
        }
        return references() == 0 ? ""
                                 : kind + ": " + std::to_string(references()) + " references kept";
    }

    const std::string kind;

  protected:
    std::atomic<std::int64_t> referenceCount = 0;
    std::atomic<bool> overReleased = false;

  private:
    static std::string nameOf(const std::type_info& type) {
        const std::string lengthAndName = type.name();
        return lengthAndName.substr(lengthAndName.find_first_not_of("0123456789"));
    }
};

/// What the objects of a scripted host have in common: the list of the calls made to them, and the
/// faults that a test has ordered.
///
/// The objects answer as well-behaved ones do until a test orders a fault. A query for an interface
/// isn't a call in this sense. To have each call fail in turn, raise the number of `failCall` for
/// as long as `faultsMet` goes up.
///
/// Callable from any thread, but for `make`.
class CallScript {
  public:
    /// A fault: the call succeeds and hands over no object. None is met where the operation doesn't
    /// hand over an object.
    static constexpr HostResult noObject = 1;

    /// Every call in order: "HostChannel::setName("a")", "HostData::getSampleRate()". Booleans are
    /// true and false, an object is the name of its interface.
    std::vector<std::string> calls() const {
        const LockGuard guard(lock);
        return listed;
    }
    /// Empties the list.
    void forget() {
        const LockGuard guard(lock);
        listed.clear();
    }

    /// The call of that number from now on, counted from 1, will have this fault: a failure's code
    /// or `noObject`. One number at a time.
    void failCall(std::size_t numberFromNow, HostResult fault) {
        const LockGuard guard(lock);
        faultyNumber = number + numberFromNow;
        faultOfNumber = fault;
    }
    /// Every call of the operation ("HostData::getSampleRate") will have it, until `heal`.
    void failOperation(const std::string& operation, HostResult fault) {
        const LockGuard guard(lock);
        faultsByName[operation] = fault;
    }
    /// Every call of the operation will begin with this, on its thread, until `heal`.
    void before(const std::string& operation, std::function<void()> action) {
        const LockGuard guard(lock);
        actions[operation] = std::move(action);
    }
    /// Takes back what was ordered.
    void heal() {
        const LockGuard guard(lock);
        actions.clear();
        faultyNumber = 0;
        faultsByName.clear();
    }
    /// How many calls met with a fault since the script was made.
    std::size_t faultsMet() const { return faults; }

    /// What was found wrong with the objects' references at the end; empty if all is well.
    std::vector<std::string> referenceFaults() const {
        std::vector<std::string> texts;
        for (const auto& object : owned) {
            texts.push_back(object->referenceFault());
        }
        std::erase(texts, "");
        return texts;
    }

    /// Makes an object that lives as long as the script, however its references are counted: so a
    /// fault in the counting can be told in words.
    template <typename T, typename... Arguments>
    T& make(Arguments&&... arguments) {
        auto object = std::make_unique<T>(*this, std::forward<Arguments>(arguments)...);
        T& made = *object;
        owned.push_back(std::move(object));
        return made;
    }

    /// For the scripted objects: lists a call and gives its fault, or success.
    HostResult enter(const std::string& operation, const std::string& arguments, bool handsObject) {
        if (const auto action = actionBefore(operation)) {
            action();
        }
        const LockGuard guard(lock);
        listed.push_back(operation + '(' + arguments + ')');
        const bool isFaulty = ++number == faultyNumber;
        const HostResult ordered = isFaulty ? faultOfNumber : faultsByName[operation];
        const HostResult fault = ordered == noObject && !handsObject ? HostCode::success : ordered;
        faults += fault == HostCode::success ? 0 : 1;
        return fault;
    }

  private:
    std::function<void()> actionBefore(const std::string& operation) {
        const LockGuard guard(lock);
        return actions[operation];
    }

    mutable Mutex lock;
    std::vector<std::string> listed CMP_GUARDED_BY(lock);
    std::size_t number CMP_GUARDED_BY(lock) = 0;  // of the last call
    std::size_t faultyNumber CMP_GUARDED_BY(lock) = 0;
    HostResult faultOfNumber CMP_GUARDED_BY(lock) = HostCode::success;
    std::map<std::string, HostResult> faultsByName CMP_GUARDED_BY(lock);
    std::map<std::string, std::function<void()>> actions CMP_GUARDED_BY(lock);
    std::atomic<std::size_t> faults = 0;
    std::vector<std::unique_ptr<ScriptedObject>> owned;
};
