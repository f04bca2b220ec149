#include "tests/support/headless_bench.h"
#include "tests/ui/window_bench.h"

INSTANTIATE_TEST_SUITE_P(Headless, SettingsWindowTest,
                         testing::Values(MakeToolkitBench{"headless", &HeadlessBench::make}));
INSTANTIATE_TEST_SUITE_P(Headless, SetupWindowTest,
                         testing::Values(MakeToolkitBench{"headless", &HeadlessBench::make}));
