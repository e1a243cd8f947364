#include <QLabel>
#include <QPushButton>

#include "app/texts.h"
#include "tests/app/window_fixture.h"

namespace kova::test {
namespace {

class WindowTutorials : public WindowTest {};

TEST_F(WindowTutorials, BoxShowsSevenSectionsWithOnlyAnOkButton) {
    makeWindow(cameras({}));
    QSizePolicy policy;
    std::string style_sheet;
    bool modal_box = false;
    int text_width = 0;
    modal.on_box = [&](QMessageBox& box) {
        policy = box.sizePolicy();
        style_sheet = box.styleSheet().toStdString();
        modal_box = box.isModal();
        text_width = box.findChild<QLabel*>("qt_msgbox_label")->width();
    };
    click("btnTutorials");
    ASSERT_EQ(modal.boxes.size(), 1u);
    EXPECT_EQ(modal.boxes[0], (ModalWatch::Box{"Tutorials", app::tutorialsText().toStdString(),
                                               QMessageBox::Ok, false}));
    EXPECT_EQ(QString::fromStdString(modal.boxes[0].text).split("\r\n\r\n").size(), 7);
    EXPECT_TRUE(modal_box);
    EXPECT_EQ(policy.horizontalPolicy(), QSizePolicy::Expanding);
    EXPECT_EQ(policy.verticalPolicy(), QSizePolicy::Expanding);
    EXPECT_EQ(policy.horizontalStretch(), 0);
    EXPECT_EQ(policy.verticalStretch(), 0);
    EXPECT_EQ(style_sheet, "QLabel{min-width: 800px;}");
    EXPECT_GE(text_width, 800);
}

TEST_F(WindowTutorials, ClosingTheBoxChangesNothingWithoutACapture) {
    makeWindow(cameras({bino::CAMERA_MODEL_QUELVAR_R0}));
    const State before = stateOf(*window);
    camera.forgetCalls();
    log.clear();
    click("btnTutorials");
    EXPECT_EQ(modal.boxes.size(), 1u);
    EXPECT_EQ(changes(before, stateOf(*window)), State());
    EXPECT_TRUE(camera.calls().empty());
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(WindowTutorials, ClosingTheBoxChangesNothingDuringACapture) {
    makeWindow(cameras({bino::CAMERA_MODEL_QUELVAR_R0}));
    click("btnStart");
    ASSERT_TRUE(waitFor([&] { return camera.count("grab") > 0; }));
    const State before = stateOf(*window);
    camera.forgetCalls();
    click("btnTutorials");
    EXPECT_EQ(changes(before, stateOf(*window)), State());
    EXPECT_TRUE(camera.calls().empty());
}

}  // namespace
}  // namespace kova::test
