#pragma once

#include <atomic>
#include <cstdint>

#include "core/module_object.h"

/// The reference count of an object that the component hands out.
class CountedObject : public ModuleObject {
  protected:
    std::uint32_t addReference() { return ++references; }
    std::uint32_t dropReference() { return --references; }

  private:
    std::atomic<std::uint32_t> references{1};
};
