#include "capture/cmp_channel_lin.h"

#include "capture/packet_text.h"

void CmpChannelLin::createOutput() {
    output = outputFactory->createChannel(outputType(), {});
    output->setExpectedRate(100.0F);
    output->setIntAttributeA(11);
    output->setName("LIN channel");
    output->setUsed(false);
}

CmpChannel::OutputChannelType CmpChannelLin::outputType() const {
    return {12, Kestrova::Utils::Kcom::OutputChannel::SampleRateKind::Asynchronous};
}

std::string CmpChannelLin::toText(const LinFrame& frame) const {
    return linFrameToText(frame);
}
