#include "station/document/setup_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "core/whole_file.h"
#include "station/document/setup_xml.h"

namespace station {
namespace {

namespace fs = std::filesystem;

std::string describe(const SetupXmlError& error) {
    return fmt::format("line {}, column {}: {}", error.getLine(), error.getColumn(), error.what());
}

std::string quoted(const fs::path& path) {
    return '"' + path.string() + '"';
}

/// The root of a text that is a setup. Throws SetupXmlError.
CountedRef<SetupElement> parse(const std::string& text) {
    auto root = fromSetupXml(text);
    if (root->getContent().name != setupRootName) {
        throw SetupXmlError(root->getLine(), 1, "this is no setup file: its root isn't <Setup>",
                            {});
    }
    return root;
}

}  // namespace

/// It is the folder's lock: saving replaces the file itself.
SetupLock::SetupLock(const fs::path& setup, const std::function<void(const fs::path&)>& onWait) {
    std::error_code ignored;
    const fs::path resolved = fs::canonical(setup, ignored);
    const fs::path place = fs::absolute(resolved.empty() ? setup : resolved).parent_path();
    folder = ::open(place.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (onWait && folder >= 0 && ::flock(folder, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        onWait(place);
    }
    while (folder >= 0 && ::flock(folder, LOCK_EX) != 0 && errno == EINTR) {
    }
    if (folder < 0) {
        throw FileError("Cannot open the folder of the setup " + quoted(setup) + ": " +
                        std::generic_category().message(errno) + ". Check its name.");
    }
}

SetupLock::~SetupLock() {
    ::close(folder);
}

CountedRef<SetupDocument> SetupFile::load() const {
    const std::string failure = "Cannot read the setup " + quoted(path) + ": ";
    try {
        const auto text = readWholeFile(path, largestSetupFile + 1);
        if (!text) {
            throw std::runtime_error("there is no such file");
        }
        auto document = makeObject<SetupDocument>(false);
        document->SetRootElement(parse(*text).get());
        return document;
    } catch (const SetupXmlError& error) {
        std::error_code ignored;
        const std::string repair = fs::exists(getBackupPath(), ignored)
                                       ? "Repair it, or take its backup " + quoted(getBackupPath())
                                       : "Repair it";
        throw FileError(failure + describe(error) + ". " +
                        (error.getAdvice().empty() ? repair : error.getAdvice()) + '.');
    } catch (const std::runtime_error& error) {
        throw FileError(failure + error.what() + ". Check its name and its permissions.");
    }
}

void SetupFile::save(const SetupDocument& document) const {
    const std::string failure = "Cannot save the setup " + quoted(path) + ": ";
    if (!document.getRoot()) {
        throw FileError(failure + "the document has no root element.");
    }
    const std::string text = toSetupXml(*document.getRoot());
    try {
        const fs::path file = target();
        const auto old = readWholeFile(file, largestSetupFile + 1);
        if (old == text) {
            return;
        }
        if (old) {
            parse(*old);
        }
        FileReplacement fresh(file, text, file);
        if (old) {
            FileReplacement(getBackupPath(), *old, file).commit();
        }
        fresh.commit();
    } catch (const SetupXmlError& error) {
        throw FileError(failure + "what is there can't be read (" + describe(error) +
                        ") and isn't overwritten. Move it away, or choose another name.");
    } catch (const std::runtime_error& error) {
        throw FileError(failure + error.what() + ". Make room there, or choose another place.");
    }
}

/// Where symbolic links lead, so that saving replaces the file and not the link.
fs::path SetupFile::target() const {
    std::error_code ignored;
    const fs::path resolved = fs::canonical(path, ignored);
    return resolved.empty() ? path : resolved;
}

fs::path SetupFile::getBackupPath() const {
    fs::path backup = target();
    backup += ".bak";
    return backup;
}

}  // namespace station
