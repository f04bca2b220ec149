#include "capture/pcap_port.h"

#include <pcap/pcap.h>

#include <algorithm>

#include "capture/late_handle.h"
#include "capture/live_handle.h"
#include "capture/network_links.h"

PcapPort::PcapPort() : openLinks(std::make_shared<OpenLinks>()) {}

std::int32_t PcapPort::findAllDevices(std::vector<CaptureInterface>& devices, std::string& error) {
    char text[PCAP_ERRBUF_SIZE] = {};
    pcap_if_t* list = nullptr;
    if (pcap_findalldevs(&list, text) == -1) {
        error = text;
        return -1;
    }
    NetworkLinks links;
    const bool isKnown = readNetworkLinks(links, error);
    devices.clear();
    for (const pcap_if_t* device = list; device != nullptr && isKnown; device = device->next) {
        const auto place = std::find_if(links.begin(), links.end(), [device](const auto& entry) {
            return entry.second.name == device->name;
        });
        if (place != links.end() && place->second.isEthernet()) {
            devices.push_back({device->name,
                               device->description != nullptr ? device->description : "",
                               findRepeated(links, place->first)});
        }
    }
    pcap_freealldevs(list);
    return isKnown ? 0 : -1;
}

bool PcapPort::isOfOtherKind(const std::string& name) {
    NetworkLinks links;
    std::string error;
    readNetworkLinks(links, error);
    return std::any_of(links.begin(), links.end(), [&name](const auto& entry) {
        return entry.second.name == name && !entry.second.isEthernet();
    });
}

std::unique_ptr<CaptureHandle> PcapPort::openLive(const std::string& name, std::int32_t snapLength,
                                                  bool promiscuous, std::int32_t timeoutMs,
                                                  std::string& error) {
    auto handle = LiveHandle::open({name, snapLength, promiscuous}, timeoutMs, openLinks, error);
    if (handle) {
        handle->enterWaits();
    }
    return handle;
}

std::unique_ptr<CaptureHandle> PcapPort::openLate(const LateCapture& wanted) {
    return LateHandle::open(wanted, openLinks);
}

std::int32_t PcapPort::lookupNet(const std::string& name, std::uint32_t& net, std::uint32_t& mask,
                                 std::string& error) {
    char text[PCAP_ERRBUF_SIZE] = {};
    bpf_u_int32 foundNet = 0;
    bpf_u_int32 foundMask = 0;
    if (pcap_lookupnet(name.c_str(), &foundNet, &foundMask, text) == -1) {
        error = text;
        return -1;
    }
    net = foundNet;
    mask = foundMask;
    return 0;
}
