#include "station/recording/word_names.h"

namespace station {
namespace {

bool isWordCharacter(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' ||
           c == '.' || c == '_';
}

/// The name as one word; each character of several bytes becomes one '_'.
std::string oneWord(const std::string& name) {
    std::string word;
    for (const char c : name) {
        const bool continuesCharacter = (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
        if (!continuesCharacter) {
            word.push_back(isWordCharacter(c) ? c : '_');
        }
    }
    return word;
}

std::string lastCharacters(const std::string& word, std::size_t count) {
    return word.size() > count ? word.substr(word.size() - count) : word;
}

}  // namespace

std::string WordNames::add(const std::string& wanted, const std::string& ifEmpty) {
    std::string word = oneWord(wanted);
    if (word.empty()) {
        word = ifEmpty;
    }
    std::string name = lastCharacters(word, longest);
    for (int n = 2; !names.insert(name).second; ++n) {
        std::string suffix = std::to_string(n);
        suffix.insert(suffix.begin(), '_');
        name = lastCharacters(word, longest - suffix.size());
        name += suffix;
    }
    return name;
}

}  // namespace station
