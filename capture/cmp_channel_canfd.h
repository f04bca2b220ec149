#pragma once

#include "capture/bus_frame.h"
#include "capture/frame_channel.h"

/// A CAN or CAN FD bus; nothing distinguishes the two. Its samples are `CanFrame` records. A
/// message with more than 64 data bytes is refused.
class CmpChannelCanfd final
    : public FrameChannel<CanFrame, &CmpChannel::OutputChannel::addAsynchronousSample> {
  public:
    using FrameChannel::FrameChannel;

    std::string getTypeName() const override { return "CAN FD"; }
    void createOutput() override;
    OutputChannelType outputType() const override;

  protected:
    std::string toText(const CanFrame& frame) const override;
};
