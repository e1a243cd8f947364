#include <QAbstractButton>
#include <QApplication>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "app/mainwindow.h"
#include "tests/support/gl_double.h"
#include "tests/support/sdk_double.h"

// Linked to the viewer's own main(): scripts the camera, says on standard error what main() has set
// up, lets a capture run where it is asked to, and closes the window.

namespace {

MainWindow* shownWindow() {
    for (QWidget* widget : QApplication::topLevelWidgets())
        if (auto* window = qobject_cast<MainWindow*>(widget); window && window->isVisible())
            return window;
    return nullptr;
}

void closeWindow() {
    MainWindow* window = shownWindow();
    if (!window)
        std::abort();
    window->close();
}

void inspect() {
    MainWindow* window = shownWindow();
    std::fprintf(stderr, "organisation: %s\ndomain: %s\nversion: %s\nwindow: %s\n",
                 qPrintable(QCoreApplication::organizationName()),
                 qPrintable(QCoreApplication::organizationDomain()),
                 qPrintable(QCoreApplication::applicationVersion()),
                 window ? qPrintable(window->windowTitle()) : "none");
    if (!window)
        std::abort();
    if (std::getenv("KOVA_TEST_CAPTURE"))
        window->findChild<QAbstractButton*>("btnStart")->click();
    QTimer::singleShot(50, closeWindow);
}

void script() {
    kova::test::CameraScript script;
    script.models = {kova::bino::CAMERA_MODEL_QUELVAR_P1};
    kova::test::CameraDouble::instance().reset(script);
    kova::test::CameraDouble::instance().scriptGrabs({}, kova::RESULT_OK);
    if (const char* result = std::getenv("KOVA_TEST_GLEW_RESULT"))
        kova::test::setGlewInitResult(static_cast<unsigned>(std::stoi(result)));
    QTimer::singleShot(0, inspect);
}

}  // namespace

Q_COREAPP_STARTUP_FUNCTION(script)
