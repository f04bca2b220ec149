#include "tests/support/headless_rig.h"
#include "tests/ui/window_rig.h"

INSTANTIATE_TEST_SUITE_P(Headless, SettingsWindowTest,
                         testing::Values(MakeToolkitRig{"headless", &HeadlessRig::make}));
INSTANTIATE_TEST_SUITE_P(Headless, SetupWindowTest,
                         testing::Values(MakeToolkitRig{"headless", &HeadlessRig::make}));
