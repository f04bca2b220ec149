#include "tests/support/qt_bench.h"
#include "tests/ui/window_bench.h"

INSTANTIATE_TEST_SUITE_P(Qt, SettingsWindowTest,
                         testing::Values(MakeToolkitBench{"Qt", &QtBench::make}));
INSTANTIATE_TEST_SUITE_P(Qt, SetupWindowTest,
                         testing::Values(MakeToolkitBench{"Qt", &QtBench::make}));
