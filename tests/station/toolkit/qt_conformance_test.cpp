#include "tests/station/toolkit/toolkit_conformance.h"
#include "tests/support/qt_bench.h"

INSTANTIATE_TEST_SUITE_P(Qt, ToolkitConformance,
                         testing::Values(MakeToolkitBench{"Qt", &QtBench::make}));
INSTANTIATE_TEST_SUITE_P(Qt, GroupedGrid, testing::Values(MakeToolkitBench{"Qt", &QtBench::make}));
