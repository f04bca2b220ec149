#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/mutex.h"
#include "core/vector_with_keys.h"

/// A list of devices in the user's order, each under a key of its own.
///
/// The list is changed on the host's thread, and on the capture thread where modules are added by
/// themselves. `listLock` guards it for the moment of a change; it is never held across a call to
/// the devices' surroundings. After each change `onItemsChanged` is called, without the lock.
///
/// `T` is a shared pointer to a device.
template <class T>
class DeviceContainer {
  public:
    DeviceContainer(std::string theListNodeName, std::string theItemNodeName)
        : itemNodeName(std::move(theItemNodeName)), listNodeName(std::move(theListNodeName)) {}
    DeviceContainer(const DeviceContainer&) = delete;
    DeviceContainer& operator=(const DeviceContainer&) = delete;
    virtual ~DeviceContainer() = default;

    /// A new device at the end of the list, under the smallest key that is free; while the keys are
    /// frozen, also free of those that were taken when the freeze began or were given out since.
    virtual T add() {
        T device = createNew();
        {
            const LockGuard guard(listLock);
            appendLocked(device);
        }
        onItemsChanged();
        return device;
    }

    virtual void clear() {
        change([](auto& list) {
            list.clear();
            return true;
        });
    }

    /// Swap an entry with the one before or after it; false if either is outside the list.
    virtual bool moveUp(std::int32_t index) { return swap(index, std::int64_t{index} - 1); }
    virtual bool moveDown(std::int32_t index) { return swap(index, std::int64_t{index} + 1); }

    /// A position outside the list changes nothing.
    virtual void remove(std::uint64_t index) {
        change([index](auto& list) { return list.eraseAt(static_cast<std::size_t>(index)); });
    }

    /// While frozen, the keys of devices that are removed stay taken.
    void beginFreeze() CMP_EXCLUDES(listLock) {
        const LockGuard guard(listLock);
        frozen = true;
        frozenKeys.clear();
        for (const auto& item : items) {
            frozenKeys.append(item.key, nullptr);
        }
    }

    void endFreeze() CMP_EXCLUDES(listLock) {
        const LockGuard guard(listLock);
        frozen = false;
        frozenKeys.clear();
    }

    /// The devices in list order.
    std::vector<T> list() const CMP_EXCLUDES(listLock) {
        const LockGuard guard(listLock);
        return listLocked();
    }

    /// The keys of the devices in list order.
    std::vector<std::uint32_t> keys() const CMP_EXCLUDES(listLock) {
        const LockGuard guard(listLock);
        std::vector<std::uint32_t> result;
        for (const auto& item : items) {
            result.push_back(item.key);
        }
        return result;
    }

  protected:
    using Items = VectorWithKeys<std::uint32_t, T>;

    virtual T createForLoad() = 0;
    virtual T createNew() = 0;
    virtual void onItemsChanged() = 0;

    /// Appends a device that was loaded, under the smallest free key.
    void appendLoaded(T device) {
        {
            const LockGuard guard(listLock);
            items.append(std::move(device));
        }
        onItemsChanged();
    }

    std::vector<T> listLocked() const CMP_REQUIRES(listLock) {
        std::vector<T> result;
        result.reserve(items.size());
        for (const auto& item : items) {
            result.push_back(item.value);
        }
        return result;
    }

    const std::string itemNodeName;  ///< of an element in the setup
    const std::string listNodeName;  ///< of the list in the setup
    mutable Mutex listLock;

  private:
    /// Runs `action` on the items under the lock; what it took out is destroyed behind the call of
    /// `onItemsChanged`. It answers whether it changed anything.
    template <class Action>
    bool change(Action action) CMP_EXCLUDES(listLock) {
        std::vector<T> before;
        bool changed = false;
        {
            const LockGuard guard(listLock);
            before = listLocked();
            changed = action(items);
        }
        if (changed) {
            onItemsChanged();
        }
        return changed;
    }

    bool swap(std::int64_t from, std::int64_t to) {
        bool inside = false;
        change([&](auto& all) {
            const auto count = static_cast<std::int64_t>(all.size());
            inside = from >= 0 && from < count && to >= 0 && to < count;
            if (inside && from != to) {
                all.swapPositions(static_cast<std::size_t>(from), static_cast<std::size_t>(to));
            }
            return inside;
        });
        return inside;
    }

    void appendLocked(const T& device) CMP_REQUIRES(listLock) {
        if (!frozen) {
            items.append(device);
            return;
        }
        std::uint32_t key = 0;
        do {  // a load during the freeze takes keys without entering them
            key = frozenKeys.freeKey();
            frozenKeys.append(key, nullptr);
        } while (items.contains(key));
        items.append(key, device);
    }

    Items items CMP_GUARDED_BY(listLock);
    bool frozen CMP_GUARDED_BY(listLock) = false;
    VectorWithKeys<std::uint32_t, std::nullptr_t> frozenKeys CMP_GUARDED_BY(listLock);
};
