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
///
/// What is registered is loaded and runs, so nothing is read or written where others than root and
/// the effective user could have changed it (`reasonForDistrust`), and the environment doesn't say
/// where the stores are in a process with more rights than whoever started it may have.
class RegistryStore {
  public:
    using Value = std::variant<std::wstring, std::uint32_t>;
    /// By name; the default value of a key has an empty one.
    using Values = std::map<std::wstring, Value>;

    explicit RegistryStore(std::filesystem::path storeFolder) : folder(std::move(storeFolder)) {}

    /// Below /usr/local/share, or what KESTROVA_REGISTRY names, where a test or a package keeps its
    /// own; the former alone in a process with more rights than its caller
    /// (`hasMoreRightsThanCaller`).
    static RegistryStore perMachine();
    /// Below XDG_DATA_HOME or HOME/.local/share where these are absolute, and else in the home
    /// folder of the effective user in the password database; that one alone for root, whose
    /// environment may be another user's. Without any of these, and in a process with more rights
    /// than its caller, there is no such store: its folder is empty, nothing is in it and `refusal`
    /// says why.
    static RegistryStore perUser();
    /// The folder that the environment names for `perUser` where it isn't used; empty if it is.
    static std::filesystem::path passedOverForUser();

    /// Creates the key if need be and replaces all its values. False if it can't be written.
    bool write(const std::string& key, const Values& values) const;
    /// Nothing if there is no such key, if its file isn't one, or if there is a `refusal`.
    std::optional<Values> read(const std::string& key) const;
    /// False if there is no such key, if it has keys below it, or if there is a `refusal`.
    bool remove(const std::string& key) const;
    /// Why the key is neither read nor written, for the user; empty if nothing speaks against it.
    std::string refusal(const std::string& key) const;
    /// The names of the keys directly below, sorted.
    std::vector<std::string> keysBelow(const std::string& key) const;
    const std::filesystem::path& getFolder() const { return folder; }

  private:
    std::filesystem::path pathOf(const std::string& key) const;

    std::filesystem::path folder;
};
