#include <gmock/gmock.h>

#include <QApplication>

/// The thread sanitizer can't see how the threads inside Qt's libraries agree with each other, as
/// those aren't built with it. What Qt itself does there is left out; code of ours that Qt calls,
/// and every other thread, is watched as always. Nothing calls this in other builds.
extern "C" const char* __tsan_default_suppressions();   // NOLINT(bugprone-reserved-identifier)
extern "C" const char* __tsan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier)
    return "called_from_lib:libQt6Core.so\ncalled_from_lib:libQt6Gui.so\n";
}

/// The main function of tests that have windows: on Qt's platform without a screen, if no other is
/// asked for.
int main(int argc, char** argv) {
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    const QApplication application(argc, argv);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
