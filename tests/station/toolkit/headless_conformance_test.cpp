#include "tests/station/toolkit/toolkit_conformance.h"
#include "tests/support/headless_bench.h"

INSTANTIATE_TEST_SUITE_P(Headless, ToolkitConformance,
                         testing::Values(MakeToolkitBench{"headless", &HeadlessBench::make}));
INSTANTIATE_TEST_SUITE_P(Headless, GroupedGrid,
                         testing::Values(MakeToolkitBench{"headless", &HeadlessBench::make}));
