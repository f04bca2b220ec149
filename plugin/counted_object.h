#pragma once

#include <atomic>
#include <cstdint>

#include "host/host_object.h"

/// The reference count of an object that the component hands out, and the number of such objects,
/// for as long as any of which the module must not be unloaded.
class CountedObject {
  public:
    CountedObject() { ++living; }
    CountedObject(const CountedObject&) = delete;
    CountedObject& operator=(const CountedObject&) = delete;

    static std::uint32_t count() { return living; }

  protected:
    ~CountedObject() { --living; }

    std::uint32_t addReference() { return ++references; }
    std::uint32_t dropReference() { return --references; }

  private:
    static inline std::atomic<std::uint32_t> living{0};
    std::atomic<std::uint32_t> references{1};
};
