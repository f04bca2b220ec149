#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <utility>

#include "core/kvrt_exception.h"
#include "core/module_object.h"
#include "host/implements.h"
#include "host/toolkit.h"
#include "ui/object_ptr.h"

namespace Kestrova::Tessel {

/// Identifies a handler: FNV-1a over the bytes of both addresses, low byte first.
constexpr std::uint64_t handlerKey(std::uint64_t function, std::uint64_t object) {
    std::uint64_t key = 0xCBF29CE484222325U;
    for (const std::uint64_t address : {function, object}) {
        for (int shift = 0; shift < 64; shift += 8) {
            key = (key ^ ((address >> shift) & 0xFFU)) * 0x100000001B3U;
        }
    }
    return key;
}

/// What is called when an event comes, and the key by which the toolkit finds it again.
template <typename Sender, typename Args>
struct BoundHandler {
    std::function<void(const Sender&, const Args&)> callable;
    std::uint64_t key = 0;
};

/// A handler that does nothing once `life` is over, and keeps it from ending during the call.
template <typename Object, typename Sender, typename Args>
BoundHandler<Sender, Args> bindHandler(std::weak_ptr<void> life, Object* object,
                                       void (Object::*operation)(const Sender&, const Args&)) {
    std::uint64_t function = 0;
    static_assert(sizeof(operation) >= sizeof(function));
    std::memcpy(&function, &operation, sizeof(function));
    return {[life = std::move(life), object, operation](const Sender& sender, const Args& args) {
                if (const auto alive = life.lock()) {
                    (object->*operation)(sender, args);
                }
            },
            handlerKey(function, reinterpret_cast<std::uintptr_t>(object))};
}

/// The toolkit's side of a handler. It belongs to the toolkit, which keeps it as long as the
/// control, and it is here that exceptions end: the toolkit sees their code.
template <typename Sender, typename Args>
class EventHandlerImpl final : public Implements<IEventHandler, RuntimeObject>,
                               private ModuleObject {
  public:
    EventHandlerImpl(RT::Core::RuntimePtr library, BoundHandler<Sender, Args> handler)
        : runtime(std::move(library)), bound(std::move(handler)) {
        runtime->kvRtTrackObject(this);
    }

    HostResult getTypeName(char** name) override {
        *name = runtime->kvRtDuplicateCharPtr("Kestrova::Tessel::IEventHandler::kvrtType");
        return *name != nullptr ? HostCode::success
                                : hostResult(RT::Core::NoMemoryException::classCode);
    }

    HostResult equals(HostObject* other, HostBool* equal) override {
        CountedRef<IEventHandler> handler;
        CountedRef<HostObject>(other).queryTo(handler);
        const auto* const same = dynamic_cast<const EventHandlerImpl*>(handler.get());
        *equal = toHostBool(same != nullptr && same->bound.key == bound.key);
        return HostCode::success;
    }

    HostResult handle(IComponent* sender, IEventArgs* args) override {
        try {
            // A sender is what the slot belongs to, so its class is known; it is the toolkit's.
            auto* const component = static_cast<typename Sender::Interface*>(sender);
            bound.callable(Sender(Sender::borrow(runtime, component)), wrap(args));
            return HostCode::success;
        } catch (const RT::Core::KvrtException& failure) {
            return hostResult(failure.getCode());
        } catch (...) {
            return hostResult(RT::Core::GeneralErrorException::classCode);
        }
    }

  private:
    ~EventHandlerImpl() override { runtime->kvRtUntrackObject(this); }

    Args wrap(IEventArgs* args) const {
        using Base = RT::Core::ObjectPtr<IEventArgs>;
        return args == nullptr
                   ? Args()
                   : Args(Base::borrow(runtime, args).template query<typename Args::Interface>());
    }

    const RT::Core::RuntimePtr runtime;
    const BoundHandler<Sender, Args> bound;
};

/// A handler of the toolkit, as a reference.
using EventHandler = RT::Core::ObjectPtr<IEventHandler>;

/// One event of an adapter. It holds no handlers: the toolkit does.
template <typename Sender, typename Args>
struct EventSlot {
    using Operation = std::function<HostResult(IEventHandler*)>;

    Operation subscribeOperation;
    Operation unsubscribeOperation;
    const Sender* owner = nullptr;

    void subscribe(BoundHandler<Sender, Args> handler) const {
        if (!handler.callable) {
            throw RT::Core::InvalidParameterException("Must bind to a valid callable.");
        }
        if (owner == nullptr || !*owner) {
            throw RT::Core::InvalidParameterException("Invalid or uninitialized control.");
        }
        if (!subscribeOperation) {
            throw RT::Core::InvalidParameterException("No subscribe method defined");
        }
        const auto made =
            makeObject<EventHandlerImpl<Sender, Args>>(owner->getRuntime(), std::move(handler));
        owner->check(subscribeOperation(made.get()));
    }
};

}  // namespace Kestrova::Tessel
