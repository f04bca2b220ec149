#include "tests/station/toolkit/toolkit_conformance.h"
#include "tests/support/qt_rig.h"

INSTANTIATE_TEST_SUITE_P(Qt, ToolkitConformance,
                         testing::Values(MakeToolkitRig{"Qt", &QtRig::make}));
INSTANTIATE_TEST_SUITE_P(Qt, GroupedGrid, testing::Values(MakeToolkitRig{"Qt", &QtRig::make}));
