#include "core/registry_store.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "core/process_rights.h"
#include "core/string_helper.h"
#include "core/trusted_path.h"
#include "core/whole_file.h"

namespace {

namespace fs = std::filesystem;
using Kestrova::Utils::Kcom::StringHelper;

constexpr const char* valuesFile = "values";

// A line is NAME <tab> KIND <tab> VALUE; what would end a field early is written with a backslash.

std::string escaped(const std::wstring& text) {
    std::string result;
    for (const char c : StringHelper::ToUtf8(text)) {
        switch (c) {
            case '\\':
                result += "\\\\";
                break;
            case '\n':
                result += "\\n";
                break;
            case '\t':
                result += "\\t";
                break;
            default:
                result += c;
        }
    }
    return result;
}

/// Nothing if the text isn't UTF-8.
std::optional<std::wstring> unescaped(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            result += text[i];
            continue;
        }
        const char c = text[++i];
        result += c == 'n' ? '\n' : c == 't' ? '\t' : c;
    }
    std::wstring wide = StringHelper::ToWide(result);
    return wide.empty() && !result.empty() ? std::nullopt : std::optional(std::move(wide));
}

std::string toLine(const std::wstring& name, const RegistryStore::Value& value) {
    const std::string start = escaped(name) + '\t';
    if (const auto* number = std::get_if<std::uint32_t>(&value)) {
        return start + "number\t" + std::to_string(*number) + '\n';
    }
    return start + "text\t" + escaped(std::get<std::wstring>(value)) + '\n';
}

bool readLine(const std::string& line, RegistryStore::Values& values) {
    const std::size_t first = line.find('\t');
    const std::size_t second = line.find('\t', first + 1);
    if (first == std::string::npos || second == std::string::npos) {
        return false;
    }
    const std::string kind = line.substr(first + 1, second - first - 1);
    const std::string text = line.substr(second + 1);
    const auto name = unescaped(line.substr(0, first));
    if (!name) {
        return false;
    }
    if (kind == "text") {
        const auto value = unescaped(text);
        values[*name] = value.value_or(L"");
        return value.has_value();
    }
    std::uint32_t number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    values[*name] = number;
    return kind == "number" && error == std::errc() && stop == text.data() + text.size();
}

bool replaceFile(const fs::path& path, const std::string& text) {
    constexpr mode_t readableForAll = 0644;
    try {
        FileReplacement(path, text, readableForAll).commit();
        return true;
    } catch (const std::runtime_error&) {
        return false;
    }
}

/// Like `fs::create_directories`, but writable to the owner alone whatever the process's mask.
bool makeFolders(const fs::path& path) {
    constexpr mode_t writableToOwner = 0755;
    fs::path reached;
    for (const fs::path& name : path) {
        reached /= name;
        mkdir(reached.c_str(), writableToOwner);
    }
    std::error_code error;
    return fs::is_directory(path, error);
}

fs::path fromEnvironment(const char* variable) {
    const char* const value = std::getenv(variable);
    return value != nullptr ? fs::path(value) : fs::path();
}

/// Of the effective user; empty if the password database knows none.
fs::path homeInDatabase() {
    std::array<char, 4096> room{};
    passwd entry{};
    passwd* found = nullptr;
    const bool known =
        getpwuid_r(geteuid(), &entry, room.data(), room.size(), &found) == 0 && found != nullptr;
    return known ? fs::path(entry.pw_dir) : fs::path();
}

/// Empty if `home` is no place that can be meant.
fs::path storeInHome(const fs::path& home) {
    return home.is_absolute() ? home / ".local/share/kestrova/registry" : fs::path();
}

fs::path userStoreInEnvironment() {
    const fs::path data = fromEnvironment("XDG_DATA_HOME");
    return data.is_absolute() ? data / "kestrova/registry" : storeInHome(fromEnvironment("HOME"));
}

bool isUserOfEnvironment() {
    return geteuid() != 0 && !hasMoreRightsThanCaller();
}

}  // namespace

RegistryStore RegistryStore::perMachine() {
    const fs::path chosen =
        hasMoreRightsThanCaller() ? fs::path() : fromEnvironment("KESTROVA_REGISTRY");
    std::error_code error;
    return RegistryStore(chosen.empty() ? fs::path("/usr/local/share/kestrova/registry")
                                        : fs::absolute(chosen, error));
}

RegistryStore RegistryStore::perUser() {
    if (hasMoreRightsThanCaller()) {
        return RegistryStore(fs::path());
    }
    const fs::path chosen = isUserOfEnvironment() ? userStoreInEnvironment() : fs::path();
    return RegistryStore(chosen.empty() ? storeInHome(homeInDatabase()) : chosen);
}

fs::path RegistryStore::passedOverForUser() {
    const fs::path named = isUserOfEnvironment() ? fs::path() : userStoreInEnvironment();
    return named == perUser().getFolder() ? fs::path() : named;
}

std::string RegistryStore::refusal(const std::string& key) const {
    if (!folder.empty()) {
        return reasonForDistrust(pathOf(key) / valuesFile);
    }
    if (hasMoreRightsThanCaller()) {
        return "this program has more rights than who started it, and uses nothing that a user has "
               "registered";
    }
    return "user " + std::to_string(geteuid()) + " has no home folder in the password database" +
           (isUserOfEnvironment() ? ", and HOME names none: set it to an absolute path" : "");
}

fs::path RegistryStore::pathOf(const std::string& key) const {
    fs::path path = folder;
    std::istringstream names(key);
    for (std::string name; std::getline(names, name, '\\');) {
        path /= name;
    }
    return path;
}

bool RegistryStore::write(const std::string& key, const Values& values) const {
    const fs::path path = pathOf(key);
    // Asked again of the folders that were made, for others may have made them meanwhile.
    if (!refusal(key).empty() || !makeFolders(path) || !refusal(key).empty()) {
        return false;
    }
    std::string text;
    for (const auto& [name, value] : values) {
        text += toLine(name, value);
    }
    return replaceFile(path / valuesFile, text);
}

std::optional<RegistryStore::Values> RegistryStore::read(const std::string& key) const {
    const TrustedPath place(pathOf(key) / valuesFile, TrustedUsers::User);
    std::ifstream file(place.isFile() ? place.opened() : fs::path());
    if (!file) {
        return std::nullopt;
    }
    Values values;
    for (std::string line; std::getline(file, line);) {
        const bool isCut = file.eof();
        if (isCut || !readLine(line, values)) {
            return std::nullopt;
        }
    }
    return file.bad() ? std::nullopt : std::optional(values);
}

bool RegistryStore::remove(const std::string& key) const {
    const fs::path path = pathOf(key);
    std::error_code error;
    if (!refusal(key).empty() || !fs::is_directory(path, error) || !keysBelow(key).empty()) {
        return false;
    }
    return fs::remove_all(path, error) > 0 && !error;
}

std::vector<std::string> RegistryStore::keysBelow(const std::string& key) const {
    std::vector<std::string> names;
    if (folder.empty()) {
        return names;
    }
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(pathOf(key), error)) {
        if (entry.is_directory(error)) {
            names.push_back(entry.path().filename().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}
