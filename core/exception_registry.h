#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "core/kvrt_exception.h"
#include "core/mutex.h"

namespace Kestrova::RT::Core {

/// Throws the exceptions of one code.
class IExceptionFactory {
  public:
    IExceptionFactory() = default;
    IExceptionFactory(const IExceptionFactory&) = delete;
    IExceptionFactory& operator=(const IExceptionFactory&) = delete;
    virtual ~IExceptionFactory() = default;

    /// Deletes the object.
    virtual void destroy() = 0;
    /// Throws; a factory that returns is at fault. An empty message means the class's default.
    virtual void raise(std::uint32_t code, const std::string& message) = 0;
};

/// How a factory is owned: it ends by its own `destroy`.
struct ExceptionFactoryDestroyer {
    void operator()(IExceptionFactory* factory) const { factory->destroy(); }
};
using OwnedExceptionFactory = std::unique_ptr<IExceptionFactory, ExceptionFactoryDestroyer>;

/// Throws T, whatever the code: T has its own. For `KvrtException` itself it keeps the code.
template <typename T>
class GenericExceptionFactory : public IExceptionFactory {
  public:
    void destroy() override { delete this; }
    [[noreturn]] void raise(std::uint32_t, const std::string& message) override {
        throw T(message);  // an empty message is the default already
    }
};
template <>
[[noreturn]] inline void GenericExceptionFactory<KvrtException>::raise(std::uint32_t code,
                                                                       const std::string& message) {
    throw KvrtException(code, false, message);
}

template <typename T>
OwnedExceptionFactory makeExceptionFactory() {
    return OwnedExceptionFactory(new GenericExceptionFactory<T>);
}

/// Knows which exception belongs to a failure code. One per process, filled while the process
/// loads and emptied at its exit; read only when something has failed. Callable from any thread,
/// but a factory that was found must not be used any more once its code is added again or removed.
class ExceptionRegistry {
  public:
    /// Never destroyed, so that the exit steps of other units can ask it whatever their order.
    static ExceptionRegistry& instance();

    ExceptionRegistry() = default;
    ExceptionRegistry(const ExceptionRegistry&) = delete;
    ExceptionRegistry& operator=(const ExceptionRegistry&) = delete;
    ~ExceptionRegistry() = default;

    /// Takes the factory in place of the one that the code had.
    void add(std::uint32_t code, OwnedExceptionFactory factory);
    void remove(std::uint32_t code);
    /// The factory of the code, or the one that throws a plain `KvrtException` with the code.
    IExceptionFactory& find(std::uint32_t code);
    /// The exit: destroys all factories. After it nothing is added or removed any more.
    void close();

  private:
    /// FNV-1a over the four bytes, low byte first.
    struct HashOfCode {
        std::size_t operator()(std::uint32_t code) const;
    };
    using Factories = std::unordered_map<std::uint32_t, OwnedExceptionFactory, HashOfCode>;
    static constexpr std::size_t initialBuckets = 8;

    std::atomic<bool> closing = false;
    Mutex lock;
    std::optional<Factories> factories CMP_GUARDED_BY(lock){std::in_place, initialBuckets};
    GenericExceptionFactory<KvrtException> fallback;
};

/// Throws the exception of the code, with the message or, if that is empty, its default text.
[[noreturn]] void raiseFromCode(std::uint32_t code, const std::string& message);

}  // namespace Kestrova::RT::Core
