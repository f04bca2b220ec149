#include "benchmarks/component_path.h"

#include "plugin/identity.h"
#include "station/document/setup_document.h"
#include "ui/settings_window.h"
#include "ui/setup_window.h"

ComponentPath::ComponentPath(const std::string& path, const std::vector<std::uint32_t>& moduleTypes)
    : frames(path), counter(frames), core(inputs, outputs, frames, counter) {
    station::StationHostOptions options;
    options.sampleRate = station::MasterClock::highestSampleRate;  // so that the last message is in
    options.documentFactory = makeObject<station::SetupDocumentFactory>();
    host = makeObject<station::StationHost>(counter, std::move(options));
    const CountedRef<HostApp> app = host;
    const auto id = std::make_shared<const std::wstring>(PluginIdentity::classIdText());
    inputs.attachHost(app, id);
    outputs.attachHost(app, id, &host->getChannels());
    core.syncManager.SetHost(app.get());
    std::uint16_t cmId = 0;
    for (const std::uint32_t type : moduleTypes) {
        const auto device = core.packetReader.getDevices().add();
        device->setTypeById(type);
        device->setCmId(++cmId);
        device->createOutputs();
    }
    for (const auto& channel : host->getChannels().all()) {
        channel->setUsed(hostTrue);
    }
    host->getChannels().beginMeasurement();
    outputs.refreshAddData();
    core.syncManager.RestartWithAcceptAll();
    core.packetReader.openInterfaces();
    core.packetReader.prepareRead(true);
    host->getClock().start();
    core.syncManager.EnableClocks();
}

void ComponentPath::poll() {
    inputs.update();
    core.packetReader.takeOver();
    core.syncManager.Tick();
    core.packetReader.flushTakenOver();
    outputs.alignToAcquisition();
}

void ComponentPath::pass() {
    constexpr int settlingPasses = 3;
    core.packetReader.readPass();
    if (++passes > settlingPasses) {
        host->getClock().movePosition();
    }
    poll();
}

std::uint64_t ComponentPath::countBeforeStart() {
    std::uint64_t sum = 0;
    for (const auto& device : core.packetReader.getDevices().list()) {
        for (const auto& channel : *device->getChannels()) {
            sum += channel->getCounts().beforeStart;
        }
    }
    return sum;
}

void ComponentPath::finish() {
    constexpr std::uint64_t oneMillisecond = 1'000'000;
    counter.passBy(oneMillisecond);
    host->getClock().movePosition();
    poll();
}
