#pragma once

#include <memory>
#include <string>
#include <vector>

#include "capture/capture_port.h"

class OpenLinks;

/// Live capture with libpcap on Linux.
///
/// It lists Ethernet interfaces and the loopback, and leaves out libpcap's pseudo-devices and links
/// that carry no Ethernet frames. A read ends after its timeout, also on a silent link, and earlier
/// on one that has just been emptied and when another link has a frame, so that links share the
/// reader and no frame waits for a silent link. Handles may outlive the port; all are opened and
/// read by one thread at a time, and closed by any. An interface that went away reads as quiet from
/// then on; one that appears or comes up later is read by the handle of `openLate`. A length never
/// exceeds the bytes captured.
///
/// An interface has a small receive ring until its first capture frame is read, and a large one
/// soon after.
class PcapPort final : public CapturePort {
  public:
    PcapPort();
    std::int32_t findAllDevices(std::vector<CaptureInterface>& devices,
                                std::string& error) override;
    bool isOfOtherKind(const std::string& name) override;
    std::unique_ptr<CaptureHandle> openLive(const std::string& name, std::int32_t snapLength,
                                            bool promiscuous, std::int32_t timeoutMs,
                                            std::string& error) override;
    std::int32_t lookupNet(const std::string& name, std::uint32_t& net, std::uint32_t& mask,
                           std::string& error) override;

    std::unique_ptr<CaptureHandle> openLate(const LateCapture& wanted) override;

  private:
    const std::shared_ptr<OpenLinks> openLinks;
};
