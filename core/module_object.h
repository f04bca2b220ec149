#pragma once

#include <atomic>
#include <cstdint>

/// An object that others may hold for longer than this module's own objects live. As long as there
/// is any, the module must not be unloaded: the code of its operations is in it.
class ModuleObject {
  public:
    ModuleObject(const ModuleObject&) = delete;
    ModuleObject& operator=(const ModuleObject&) = delete;

    static std::uint32_t count() { return living; }

  protected:
    ModuleObject() { ++living; }
    ~ModuleObject() { --living; }

  private:
    static inline std::atomic<std::uint32_t> living{0};
};
