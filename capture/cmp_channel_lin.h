#pragma once

#include "capture/bus_frame.h"
#include "capture/frame_channel.h"

/// A LIN bus. Its samples are `LinFrame` records, which go the host's way for values of varying
/// size. A message with more than 8 data bytes is refused.
class CmpChannelLin final
    : public FrameChannel<LinFrame, &CmpChannel::OutputChannel::addVariantSample> {
  public:
    using FrameChannel::FrameChannel;

    std::string getTypeName() const override { return "LIN"; }
    void createOutput() override;
    OutputChannelType outputType() const override;

  protected:
    std::string toText(const LinFrame& frame) const override;
};
