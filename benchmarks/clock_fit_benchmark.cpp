// How far the soft fit of a module's clock is from the true line, on made-up readings: one pair
// each 20 ms, of which the module's errs. Beside it an ordinary least-squares line over all
// readings so far, from the same readings. Nothing here is a time of this machine: the figures are
// the same wherever it runs.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "sync/soft_sync_algorithm.h"

namespace {

using Kestrova::Utils::Synchronization::SoftSyncAlgorithm;

constexpr double period = 0.02;  // seconds between readings
constexpr int readings = 30 * 50;

/// The reference: master over slave, each reading of the same weight. Sums count from the first.
class LeastSquares {
  public:
    void update(double master, double slave) {
        ++count;
        meanMaster += (master - meanMaster) / count;
        const double before = slave - meanSlave;
        meanSlave += before / count;
        sumSlave += before * (slave - meanSlave);
        sumBoth += before * (master - meanMaster);
    }
    double slaveToMaster(double slave) const {
        const double slope = sumSlave > 0.0 ? sumBoth / sumSlave : 1.0;
        return meanMaster + (slave - meanSlave) * slope;
    }

  private:
    double count = 0.0;
    double meanMaster = 0.0;
    double meanSlave = 0.0;
    double sumSlave = 0.0;
    double sumBoth = 0.0;
};

struct Case {
    const char* name;
    double ppm = 0.0;
    double noise = 0.0;      // seconds, half of the width
    double ppmChange = 0.0;  // a second, as a crystal warms up
};

struct Errors {
    std::vector<double> all;

    void add(double error) { all.push_back(std::abs(error) * 1e6); }
    double share(double part) {
        std::sort(all.begin(), all.end());
        return all[std::min(static_cast<std::size_t>(static_cast<double>(all.size()) * part),
                            all.size() - 1)];
    }
};

/// Slave time at a master time: the integral of a rate that changes evenly.
double slaveAt(const Case& entry, double master) {
    return master * (1.0 + 1e-6 * (entry.ppm + entry.ppmChange * master / 2.0));
}

void run(const Case& entry) {
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> noise(-entry.noise, entry.noise);
    SoftSyncAlgorithm fit;
    LeastSquares reference;
    fit.Initialize();
    Errors fitErrors;
    Errors referenceErrors;
    for (int i = 1; i <= readings; ++i) {
        const double master = i * period;
        const double slave = slaveAt(entry, master) + noise(random);
        fit.Update(master, slave);
        reference.update(master, slave);
        if (i > 3) {  // a message half a period later
            const double later = master + period / 2.0;
            fitErrors.add(fit.SlaveToMaster(slaveAt(entry, later)) - later);
            referenceErrors.add(reference.slaveToMaster(slaveAt(entry, later)) - later);
        }
    }
    fmt::print("  {:<34}{:>11.3f}{:>11.3f}{:>15.3f}{:>11.3f}\n", entry.name, fitErrors.share(0.5),
               fitErrors.share(0.99), referenceErrors.share(0.5), referenceErrors.share(0.99));
}

}  // namespace

int main() {
    fmt::print("error of converted times over 30 s, microseconds:\n");
    fmt::print("  {:<34}{:>22}{:>26}\n", "", "soft sync", "least squares");
    fmt::print("  {:<34}{:>11}{:>11}{:>15}{:>11}\n", "", "median", "99 %", "median", "99 %");
    for (const Case& entry :
         {Case{"no noise, 0 ppm"}, Case{"no noise, +50 ppm", 50}, Case{"no noise, -500 ppm", -500},
          Case{"noise 0.1 ms, +50 ppm", 50, 1e-4}, Case{"noise 1 ms, +500 ppm", 500, 1e-3},
          Case{"no noise, warming up 1 ppm a second", 0, 0, 1.0},
          Case{"noise 0.1 ms, warming up", 0, 1e-4, 1.0}}) {
        run(entry);
    }
    return 0;
}
