#include <QObject>
#include <cstdio>

// What a user supplies in the hope that a program with more rights loads it: as a plug-in, as a
// library of the system, as a part of the window toolkit. It writes down that it was, and with
// which capabilities.

class ForeignModule : public QObject {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "org.qt-project.Qt.QPA.QPlatformIntegrationFactoryInterface.5.3" FILE
                          "foreign_module.json")
};

namespace {

const bool wasHere = [] {
    std::FILE* const status = std::fopen("/proc/self/status", "r");
    std::FILE* const trace = std::fopen("/run/trace/foreign", "a");
    for (int c = 0; status != nullptr && trace != nullptr && (c = std::fgetc(status)) != EOF;) {
        std::fputc(c, trace);
    }
    return status != nullptr && trace != nullptr && std::fclose(status) + std::fclose(trace) == 0;
}();

}  // namespace

#include "foreign_module.moc"
