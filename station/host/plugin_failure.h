#pragma once

#include <stdexcept>
#include <string>

namespace station {

/// The plug-in failed in one of the host's calls: by an exception of any type or by a negative
/// code. The text says in which and why, for the user.
class PluginError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// What the exception says that is being handled, with its code if it has one. To be called in a
/// handler; knows the failures that a plug-in lets through to its host, and any other.
std::string describeCurrentFailure();

}  // namespace station
