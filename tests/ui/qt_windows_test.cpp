#include "tests/support/qt_rig.h"
#include "tests/ui/window_rig.h"

INSTANTIATE_TEST_SUITE_P(Qt, SettingsWindowTest,
                         testing::Values(MakeToolkitRig{"Qt", &QtRig::make}));
INSTANTIATE_TEST_SUITE_P(Qt, SetupWindowTest, testing::Values(MakeToolkitRig{"Qt", &QtRig::make}));
