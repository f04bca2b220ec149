#include "capture/network_links.h"

#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if_arp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <system_error>

namespace {

using Bytes = std::basic_string_view<char>;

template <typename Value>
bool read(Bytes bytes, Value& value) {
    if (bytes.size() < sizeof value) {
        return false;
    }
    std::memcpy(&value, bytes.data(), sizeof value);
    return true;
}

/// A record of netlink, a message or an attribute: a header that begins with its length, the
/// contents, and padding up to four bytes. Cuts it off the front; false at the end.
template <typename Header>
bool cutRecord(Bytes& bytes, Header& header, Bytes& contents) {
    constexpr std::size_t unit = 4;
    if (!read(bytes, header)) {
        return false;
    }
    std::size_t length = 0;
    if constexpr (requires { header.nlmsg_len; }) {
        length = header.nlmsg_len;
    } else {
        length = header.rta_len;
    }
    if (length < sizeof header || length > bytes.size()) {
        return false;
    }
    contents = bytes.substr(sizeof header, length - sizeof header);
    bytes.remove_prefix(std::min(bytes.size(), (length + unit - 1) / unit * unit));
    return true;
}

std::string textOf(Bytes contents) {
    return std::string(contents.substr(0, contents.find('\0')));
}

std::string kindOf(Bytes attributes) {
    rtattr attribute{};
    for (Bytes contents; cutRecord(attributes, attribute, contents);) {
        if (attribute.rta_type == IFLA_INFO_KIND) {
            return textOf(contents);
        }
    }
    return {};
}

void addLink(Bytes message, NetworkLinks& links) {
    ifinfomsg info{};
    if (!read(message, info)) {
        return;
    }
    NetworkLink link;
    link.hardwareType = info.ifi_type;
    link.isUp = (info.ifi_flags & IFF_UP) != 0;
    bool isLowerElsewhere = false;
    message.remove_prefix(sizeof info);
    rtattr attribute{};
    for (Bytes contents; cutRecord(message, attribute, contents);) {
        switch (attribute.rta_type & NLA_TYPE_MASK) {
            case IFLA_IFNAME:
                link.name = textOf(contents);
                break;
            case IFLA_MASTER:
                read(contents, link.master);
                break;
            case IFLA_LINK:
                read(contents, link.lower);
                break;
            case IFLA_LINK_NETNSID:
                isLowerElsewhere = true;
                break;
            case IFLA_LINKINFO:
                link.kind = kindOf(contents);
                break;
            default:
                break;
        }
    }
    if (isLowerElsewhere) {
        link.lower = 0;
    }
    links[info.ifi_index] = link;
}

/// A socket of its own for each question, so that no answer is mixed with an event.
class Question {
  public:
    Question() : descriptor(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) {}
    ~Question() {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
    Question(const Question&) = delete;
    Question& operator=(const Question&) = delete;

    bool ask() const {
        struct {
            nlmsghdr header;
            ifinfomsg info;
        } request{};
        request.header.nlmsg_len = sizeof request;
        request.header.nlmsg_type = RTM_GETLINK;
        request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
        return descriptor >= 0 && send(descriptor, &request, sizeof request, 0) == sizeof request;
    }

    /// False on failure, with the reason in `errno`: EINTR if the links changed amid the answer, so
    /// that one may be missing in it.
    bool takeAnswer(NetworkLinks& links) const {
        bool isTorn = false;
        std::vector<char> buffer(64UL * 1024);  // the system fills 32 KiB at most
        while (true) {
            const ssize_t size = recv(descriptor, buffer.data(), buffer.size(), 0);
            if (size < 0 && errno == EINTR) {
                continue;
            }
            if (size <= 0) {
                return false;
            }
            Bytes rest(buffer.data(), static_cast<std::size_t>(size));
            nlmsghdr header{};
            for (Bytes contents; cutRecord(rest, header, contents);) {
                isTorn = isTorn || (header.nlmsg_flags & NLM_F_DUMP_INTR) != 0;
                if (header.nlmsg_type == NLMSG_DONE) {
                    errno = EINTR;
                    return !isTorn;
                }
                if (header.nlmsg_type == NLMSG_ERROR) {
                    int code = -EIO;
                    read(contents, code);
                    errno = -code;
                    return false;
                }
                if (header.nlmsg_type == RTM_NEWLINK) {
                    addLink(contents, links);
                }
            }
        }
    }

  private:
    const int descriptor;
};

bool isOneOf(std::string_view kind, std::initializer_list<std::string_view> kinds) {
    return std::find(kinds.begin(), kinds.end(), kind) != kinds.end();
}

}  // namespace

bool NetworkLink::isEthernet() const {
    return hardwareType == ARPHRD_ETHER || hardwareType == ARPHRD_LOOPBACK;
}

bool readNetworkLinks(NetworkLinks& links, std::string& error) {
    constexpr int mostTries = 20;
    for (int tries = 0; tries < mostTries; ++tries) {
        links.clear();
        const Question question;
        if (question.ask() && question.takeAnswer(links)) {
            return true;
        }
        if (errno != EINTR) {
            break;
        }
    }
    error = "the network interfaces can't be listed: " +
            std::error_code(errno, std::generic_category()).message();
    return false;
}

std::vector<std::string> findRepeated(const NetworkLinks& links, int index,
                                      const std::function<bool(int)>& isCaptured) {
    const NetworkLink& upper = links.at(index);
    std::vector<int> below;
    if (isOneOf(upper.kind, {"bridge", "bond", "team"})) {
        for (const auto& [other, link] : links) {
            if (link.master == index) {
                below.push_back(other);
            }
        }
    } else if (isOneOf(upper.kind, {"macvlan", "macvtap", "ipvlan", "ipvtap"})) {
        below.push_back(upper.lower);
    }
    std::vector<std::string> names;
    for (const int other : below) {
        const auto place = links.find(other);
        if (place == links.end() || !place->second.isEthernet() ||
            (place->second.isUp && !isCaptured(other) &&
             findRepeated(links, other, isCaptured).empty())) {
            return {};
        }
        names.push_back(place->second.name);
    }
    return names;
}

LinkEvents::LinkEvents()
    : events(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE)),
      waker(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK;
    if (events < 0 || waker < 0 ||
        bind(events, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int code = errno;
        close(events);
        close(waker);
        throw std::system_error(code, std::generic_category());
    }
}

LinkEvents::~LinkEvents() {
    close(events);
    close(waker);
}

/// What has happened is asked for as a whole: so it doesn't matter if events were too many to be
/// kept.
bool LinkEvents::wait(std::chrono::milliseconds longest) {
    std::array<pollfd, 2> polled{{{events, POLLIN, 0}, {waker, POLLIN, 0}}};
    poll(polled.data(), polled.size(), static_cast<int>(longest.count()));
    bool happened = false;
    std::array<char, 4096> unused{};
    while (recv(events, unused.data(), unused.size(), 0) >= 0 || errno == ENOBUFS) {
        happened = true;
    }
    return happened;
}

void LinkEvents::wake() {
    eventfd_write(waker, 1);
}
