#pragma once

#include <cstddef>
#include <deque>

#include "core/mutex.h"
#include "host/host_object.h"

class ScriptedObject;

/// What the objects of a scripted host have in common: the list of the calls made to them, the
/// faults that a test has ordered, and the reference counts.
///
/// The objects answer as well-behaved ones do until a test orders a fault. A query for an interface
/// isn't a call in this sense: it is neither listed nor counted, but can be made to fail by its
/// name, "HostChannel::queryInterface".
///
///     for (std::size_t number = 1; host.script.faultsMet() == number - 1; ++number) {
///         host.script.failCall(number, HostCode::failed);  // in turn, until none is left
///         ...
///     }
///
/// Callable from any thread, but for `make`.
class CallScript {
  public:
    CallScript();
    ~CallScript();
    CallScript(const CallScript&) = delete;
    CallScript& operator=(const CallScript&) = delete;

    /// Every call in order: "HostData::getSampleRate".
    std::vector<std::string> operations() const;
    /// The same with arguments: "HostChannel::setName("a")", "HostData::getSampleRate()". Booleans
    /// are true and false, objects are told by their kind.
    std::vector<std::string> calls() const;
    /// Empties the list.
    void forget();

    /// The call of that number from now on, counted from 1, will fail with this code.
    void failCall(std::size_t number, HostResult code);
    /// Every call of the operation will fail, until `heal`.
    void failOperation(const std::string& operation, HostResult code);
    /// As the two above, but the call succeeds and hands over no object. Nothing happens, and no
    /// fault is met, where the operation doesn't hand over an object.
    void nullCall(std::size_t number);
    void nullOperation(const std::string& operation);
    /// Every call of the operation will begin with this, on its thread, until `heal`.
    void before(const std::string& operation, std::function<void()> action);
    /// Takes back what was ordered.
    void heal();
    /// How many calls met with a fault since the script was made.
    std::size_t faultsMet() const;

    /// Who holds references to an object at the end, or gave back more than it had: "HostChannel: 2
    /// references kept", "HostDocument: released once too often". Empty if all is well.
    std::vector<std::string> referenceFaults() const;

    /// Makes an object that lives as long as the script, however its references are counted: so a
    /// fault in the counting can be told in words.
    template <typename T, typename... Arguments>
    T& make(Arguments&&... arguments) {
        auto object = std::make_unique<T>(*this, std::forward<Arguments>(arguments)...);
        T& made = *object;
        owned.push_back(std::move(object));
        return made;
    }

    struct Verdict {
        HostResult code = HostCode::success;
        bool handsNull = false;
    };
    /// For the scripted objects: lists a call and says what shall become of it.
    Verdict enter(const std::string& operation, const std::string& arguments, bool handsObject);
    /// The fault ordered for a query, which isn't listed.
    HostResult enterQuery(const std::string& operation);
    void attend(ScriptedObject* object);
    void leave(ScriptedObject* object);

  private:
    struct Call {
        std::string operation;
        std::string arguments;
    };
    std::function<void()> actionBefore(const std::string& operation) const;
    Verdict takeFault(const std::string& operation, bool handsObject) CMP_REQUIRES(lock);

    mutable Mutex lock;
    std::vector<Call> listed CMP_GUARDED_BY(lock);
    std::size_t number CMP_GUARDED_BY(lock) = 0;  // of the last call
    std::map<std::size_t, Verdict> faultsByNumber CMP_GUARDED_BY(lock);
    std::map<std::string, Verdict> faultsByName CMP_GUARDED_BY(lock);
    std::map<std::string, std::function<void()>> actions CMP_GUARDED_BY(lock);
    std::size_t faults CMP_GUARDED_BY(lock) = 0;
    std::vector<ScriptedObject*> objects CMP_GUARDED_BY(lock);
    std::deque<std::unique_ptr<ScriptedObject>> owned;
};
