#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

/// The registered plug-ins and components: keys with named values, as a host looks them up.
///
/// A key is a path of names with backslashes between them; each is a folder below the store's own,
/// and its values stand in one file of it, which is written as a whole and replaced in one step:
/// who reads sees all of the values of one registration or of another. Used on one thread; programs
/// may read while another writes.
class RegistryStore {
  public:
    using Value = std::variant<std::wstring, std::uint32_t>;
    /// By name; the default value of a key has an empty one.
    using Values = std::map<std::wstring, Value>;

    explicit RegistryStore(std::filesystem::path storeFolder) : folder(std::move(storeFolder)) {}

    /// Below /usr/local/share, or what KESTROVA_REGISTRY names, where a test or a package keeps its
    /// own.
    static RegistryStore perMachine();
    /// Below XDG_DATA_HOME or ~/.local/share.
    static RegistryStore perUser();

    /// Creates the key if need be and replaces all its values. False if it can't be written.
    bool write(const std::string& key, const Values& values) const;
    /// Nothing if there is no such key, or if its file isn't one.
    std::optional<Values> read(const std::string& key) const;
    /// False if there is no such key or if it has keys below it.
    bool remove(const std::string& key) const;
    /// The names of the keys directly below, sorted.
    std::vector<std::string> keysBelow(const std::string& key) const;
    const std::filesystem::path& getFolder() const { return folder; }

  private:
    std::filesystem::path pathOf(const std::string& key) const;

    std::filesystem::path folder;
};
