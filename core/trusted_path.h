#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "core/descriptor.h"

/// Whose files are taken, beside root's. In a process with more rights than its caller
/// (`hasMoreRightsThanCaller`) both mean root alone.
enum class TrustedUsers {
    User,            ///< the effective one: for what is found without being asked for
    UserAndProgram,  ///< the owner of the program's file too, whose code runs anyway
};

/// What a path led to when it was opened, and whether anyone but the trusted users could have put
/// it there or could change it.
///
/// From the root down each folder, each symbolic link and the file itself is opened, then judged by
/// its descriptor, and the next name is looked up from that same descriptor. Each must belong to a
/// trusted user and be writable to such users alone: by the owner, or by a group that has the
/// owner's name and no other member. A folder with the sticky bit may be writable to all, as what
/// is in it is safe from others. With root alone, no file system that is mounted nosuid is entered:
/// an ordinary user may have mounted it and make up the owners.
///
/// So two races are closed. Nothing can be exchanged between the judgement and the next step; and a
/// file that isn't there can't be put there after the judgement, as there is none of it: whoever
/// wants to use the file asks `isFile`. Where that is so, only the trusted users can make the name
/// `resolved` lead to another file afterwards. That name has no links in it: those of /proc lead
/// elsewhere for the system than their text says, into another user's mounts, for instance.
class TrustedPath {
  public:
    TrustedPath(const std::filesystem::path& path, TrustedUsers trusted);

    /// Why it isn't to be used, for the user and with the command that mends it. Empty if nothing
    /// speaks against it and if nothing is there. A relative path is a reason too: what it leads to
    /// depends on where the process was started.
    const std::string& getRefusal() const { return reason; }
    /// Whether there is a regular file and no refusal.
    bool isFile() const { return regular; }
    /// The file's absolute path without links; empty if there is nothing or a refusal.
    const std::filesystem::path& getResolved() const { return place; }
    /// A path that opens the very file that was judged, as long as this lives.
    std::filesystem::path opened() const;
    /// Whether `getResolved` still leads to that file: for what can only be opened by its name.
    bool isStillThere() const;

  private:
    void walk(const std::filesystem::path& path, const std::vector<uid_t>& users);

    std::string reason;
    Descriptor file;
    std::filesystem::path place;
    bool regular = false;
};

/// `TrustedPath::refusal` for what is found without being asked for.
std::string reasonForDistrust(const std::filesystem::path& path);
