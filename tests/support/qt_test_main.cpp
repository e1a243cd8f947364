#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QFont>
#include <QStyle>

#include "app/application.h"

// What pictures depend on is pinned: scale, style, colours, font, animations, the blinking cursor.
int main(int argc, char** argv) {
    qputenv("QT_SCALE_FACTOR", "1");
    qputenv("QT_FONT_DPI", "96");
    kova::app::Application application(argc, argv);
    QApplication::setStyle(QStringLiteral("Fusion"));
    QApplication::setPalette(QApplication::style()->standardPalette());
    QApplication::setFont(QFont(QStringLiteral("DejaVu Sans"), 9));
    for (const auto effect : {Qt::UI_AnimateMenu, Qt::UI_AnimateCombo, Qt::UI_AnimateTooltip,
                              Qt::UI_FadeMenu, Qt::UI_FadeTooltip, Qt::UI_AnimateToolBox}) {
        QApplication::setEffectEnabled(effect, false);
    }
    QApplication::setCursorFlashTime(0);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
