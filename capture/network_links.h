#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// A network interface as the system describes it.
struct NetworkLink {
    std::string name;
    int hardwareType = 0;  ///< `ARPHRD_...`
    bool isUp = false;
    std::string kind;  ///< of a virtual one, such as "bridge"
    int master = 0;    ///< index of the one of which it is a port or member; 0: none
    int lower = 0;     ///< index of the one that it is made on; 0: none in this network namespace

    /// Whether its frames are Ethernet frames.
    bool isEthernet() const;
};

/// By the system's index, which a new interface of the same name doesn't have.
using NetworkLinks = std::map<int, NetworkLink>;

/// Those of this network namespace. False on failure, with the reason in `error`.
bool readNetworkLinks(NetworkLinks& links, std::string& error);

/// The names of those whose frames the interface shows once more, as a bridge does with its ports';
/// none if it also has frames that no other Ethernet interface shows. A VLAN's interface is none of
/// those: what it shows untagged is tagged below. None, too, if one of those is up and neither
/// captured on nor shows only what is.
std::vector<std::string> findRepeated(
    const NetworkLinks& links, int index,
    const std::function<bool(int)>& isCaptured = [](int) { return true; });

/// Waits until an interface is made, taken away or changed. One thread uses it, but for `wake`.
class LinkEvents {
  public:
    /// Throws `std::system_error`.
    LinkEvents();
    ~LinkEvents();
    LinkEvents(const LinkEvents&) = delete;
    LinkEvents& operator=(const LinkEvents&) = delete;

    /// Whether something has happened since the last call, at the latest after `longest`.
    bool wait(std::chrono::milliseconds longest);
    /// Ends the wait, now or the next one. Any thread.
    void wake();

  private:
    int events = -1;
    int waker = -1;
};
