#include "capture/cmp_channel_canfd.h"

#include "capture/packet_text.h"

void CmpChannelCanfd::createOutput() {
    output = outputFactory->createChannel(outputType(), {});
    output->setExpectedRate(10000.0F);
    output->setName("CANFD channel");
    output->setUsed(false);
}

CmpChannel::OutputChannelType CmpChannelCanfd::outputType() const {
    return {14, Kestrova::Utils::Kcom::OutputChannel::SampleRateKind::Asynchronous};
}

std::string CmpChannelCanfd::toText(const CanFrame& frame) const {
    return canFrameToText(frame);
}
