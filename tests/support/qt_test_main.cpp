#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QFont>

#include "app/application.h"

int main(int argc, char** argv) {
    kova::app::Application application(argc, argv);
    // What pictures depend on is pinned: font, animations, the blinking cursor.
    QApplication::setFont(QFont(QStringLiteral("DejaVu Sans"), 9));
    QApplication::setEffectEnabled(Qt::UI_AnimateMenu, false);
    QApplication::setCursorFlashTime(0);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
