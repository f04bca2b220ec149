#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

/// Keys that the container can hand out by itself.
template <typename Key>
concept CountableKey = std::integral<Key> && !std::same_as<Key, bool>;

/// A small list whose entries also have keys, for what a user arranges: the order is his and is
/// what gets saved, and a key stays with its entry wherever that moves.
///
/// Invariant: the index holds each entry's key with its place in `entries`. It is built again at
/// every change, as changes come from a user's hand and entries are few; so a change costs time
/// proportional to the number of entries, a look-up by key is constant. What goes together is
/// erased by one `eraseIf`.
///
/// A change invalidates iterators, references and pointers to entries. Not synchronised.
template <typename Key, typename Value, typename Hash = std::hash<Key>>
class VectorWithKeys {
  public:
    /// A user of an entry may change `value` but never `key`.
    struct Entry {
        Key key;
        Value value;
    };
    using iterator = typename std::vector<Entry>::iterator;
    using const_iterator = typename std::vector<Entry>::const_iterator;

    /// Keys handed out are 0, 1, 2 and so on.
    VectorWithKeys() = default;
    /// Keys handed out are `first`, `first` + `step` and so on; `step` must not be 0.
    VectorWithKeys(Key first, Key step) requires CountableKey<Key>
        : firstKey(first), keyStep(step), lowestFree(first) {}

    /// Appends under the smallest free key, which the returned entry has.
    Entry& append(Value value) requires CountableKey<Key> {
        return append(freeKey(), std::move(value));
    }

    /// Appends under `key`. If the key is taken, nothing changes and its present entry is returned.
    Entry& append(const Key& key, Value value) {
        if (const auto place = index.find(key); place != index.end()) {
            return entries[place->second];
        }
        entries.push_back(Entry{key, std::move(value)});
        index.emplace(key, entries.size() - 1);
        return entries.back();
    }

    /// The key that the next `append` without a key takes.
    Key freeKey() const requires CountableKey<Key> {
        while (index.contains(lowestFree)) {
            lowestFree = static_cast<Key>(lowestFree + keyStep);
        }
        return lowestFree;
    }

    /// Null if there is no such key.
    Value* find(const Key& key) {
        const auto place = index.find(key);
        return place == index.end() ? nullptr : &entries[place->second].value;
    }
    const Value* find(const Key& key) const {
        const auto place = index.find(key);
        return place == index.end() ? nullptr : &entries[place->second].value;
    }
    bool contains(const Key& key) const { return index.contains(key); }

    /// Throws `std::out_of_range` for a position at or beyond the size.
    Entry& at(std::size_t position) { return entries.at(position); }
    const Entry& at(std::size_t position) const { return entries.at(position); }

    /// Returns the iterator to the entry after the erased one, so that a loop can go on with it.
    iterator erase(const_iterator entry) {
        const auto next = entries.erase(entry);
        lowestFree = firstKey;
        rebuildIndex();
        return next;
    }
    /// Whether there was such a key.
    bool eraseKey(const Key& key) {
        const auto place = index.find(key);
        return place != index.end() && eraseAt(place->second);
    }
    /// Whether there was such a position.
    bool eraseAt(std::size_t position) {
        if (position >= entries.size()) {
            return false;
        }
        erase(entries.cbegin() + static_cast<std::ptrdiff_t>(position));
        return true;
    }

    /// Erases the entries that `isToGo`, which must not throw.
    template <typename Predicate>
    void eraseIf(Predicate isToGo) {
        std::erase_if(entries, std::move(isToGo));
        lowestFree = firstKey;
        rebuildIndex();
    }

    /// Exchanges the places of two entries; each keeps its key. Whether both positions exist.
    bool swapPositions(std::size_t a, std::size_t b) {
        if (a >= entries.size() || b >= entries.size()) {
            return false;
        }
        std::swap(entries[a], entries[b]);
        rebuildIndex();
        return true;
    }

    void clear() {
        entries.clear();
        index.clear();
        lowestFree = firstKey;
    }

    std::size_t size() const { return entries.size(); }
    bool empty() const { return entries.empty(); }

    iterator begin() { return entries.begin(); }
    iterator end() { return entries.end(); }
    const_iterator begin() const { return entries.begin(); }
    const_iterator end() const { return entries.end(); }

  private:
    /// The member for keys that can't be counted, so that they need no default.
    struct NoKey {
        constexpr explicit NoKey(int) {}
    };
    using CountedKey = std::conditional_t<CountableKey<Key>, Key, NoKey>;
    static constexpr std::size_t initialBuckets = 8;

    void rebuildIndex() {
        index.clear();
        for (std::size_t position = 0; position < entries.size(); ++position) {
            index.emplace(entries[position].key, position);
        }
    }

    CountedKey firstKey = CountedKey(0);
    CountedKey keyStep = CountedKey(1);
    mutable CountedKey lowestFree = CountedKey(0);  ///< or below it: all before it are taken
    std::vector<Entry> entries;
    std::unordered_map<Key, std::size_t, Hash> index{initialBuckets};
};
