#include "tests/station/toolkit/toolkit_conformance.h"
#include "tests/support/headless_rig.h"

INSTANTIATE_TEST_SUITE_P(Headless, ToolkitConformance,
                         testing::Values(MakeToolkitRig{"headless", &HeadlessRig::make}));
INSTANTIATE_TEST_SUITE_P(Headless, GroupedGrid,
                         testing::Values(MakeToolkitRig{"headless", &HeadlessRig::make}));
