#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QMainWindow>
#include <QMetaMethod>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QStyle>

#include <limits>

#include "qwidget/cpumouseqopenglwidget.h"
#include "qwidget/indicatorwidget.h"
#include "qwidget/mouseqslider.h"
#include "qwidget/pointcloudqopenglwidget.h"
#include "qwidget/qxtspanslider.h"
#include "tests/app/window_fixture.h"

#include "ui_mainwindow.h"

namespace kova::test {
namespace {

// The window as its description builds it, before MainWindow fills and hides anything.
class LayoutTest : public testing::Test {
protected:
    LayoutTest() { ui.setupUi(&window); }
    QWidget* widget(const char* name) { return window.findChild<QWidget*>(name); }
    QLayout* layout(const char* name) { return window.findChild<QLayout*>(name); }

    QMainWindow window;
    Ui_MainWindow ui;
};

TEST_F(LayoutTest, TopLevelWindow) {
    EXPECT_EQ(window.objectName(), "MainWindow");
    EXPECT_EQ(window.windowModality(), Qt::ApplicationModal);
    EXPECT_EQ(window.size(), QSize(2500, 1400));
    EXPECT_EQ(window.minimumSize(), QSize(800, 500));
    ASSERT_EQ(window.centralWidget(), ui.gridLayoutWidget);
    EXPECT_EQ(ui.gridLayoutWidget->objectName(), "gridLayoutWidget");
    EXPECT_STREQ(ui.gridLayoutWidget->metaObject()->className(), "QWidget");
    const QSizePolicy policy = ui.gridLayoutWidget->sizePolicy();
    EXPECT_EQ(policy.horizontalPolicy(), QSizePolicy::Expanding);
    EXPECT_EQ(policy.verticalPolicy(), QSizePolicy::Expanding);
    EXPECT_EQ(policy.horizontalStretch(), 0);
    EXPECT_EQ(policy.verticalStretch(), 0);
}

TEST_F(LayoutTest, KeepsTheNameThatTheWindowHas) {
    QMainWindow named;
    named.setObjectName("another");
    Ui_MainWindow other;
    other.setupUi(&named);
    EXPECT_EQ(named.objectName(), "another");
}

TEST_F(LayoutTest, GridSizing) {
    const QGridLayout* grid = ui.gridLayout;
    EXPECT_EQ(grid->objectName(), "gridLayout");
    EXPECT_EQ(ui.gridLayoutWidget->layout(), grid);
    EXPECT_EQ(grid->horizontalSpacing(), 10);
    EXPECT_EQ(grid->verticalSpacing(), 10);
    EXPECT_EQ(grid->contentsMargins(), QMargins(20, 10, 20, 10));
    ASSERT_EQ(grid->rowCount(), 6);
    ASSERT_EQ(grid->columnCount(), 11);
    const int row_stretch[] = {0, 1, 0, 1, 0, 0};
    const int row_height[] = {100, 300, 20, 300, 50, 50};
    for (int row = 0; row < 6; ++row) {
        EXPECT_EQ(grid->rowStretch(row), row_stretch[row]) << row;
        EXPECT_EQ(grid->rowMinimumHeight(row), row_height[row]) << row;
    }
    for (int column = 0; column < 11; ++column) {
        EXPECT_EQ(grid->columnStretch(column), column == 5 ? 4 : 1) << column;
        EXPECT_EQ(grid->columnMinimumWidth(column), column == 6 ? 250 : 50) << column;
    }
}

struct Cell {
    const char* name;
    int row, column, rows, columns;
};

constexpr Cell kCells[] = {
    {"verticalLayoutTopLeftOne", 0, 0, 1, 3},
    {"groupBoxDepthMode", 0, 3, 1, 1},
    {"groupBoxWorkMode", 0, 4, 1, 1},
    {"verticalLayoutTop", 0, 5, 1, 3},
    {"verticalLayout", 0, 8, 1, 1},
    {"verticalLayoutTopLeft", 0, 9, 1, 1},
    {"verticalLayoutTopRight", 0, 10, 1, 1},
    {"oglWImage", 1, 0, 1, 5},
    {"oglWPointCloud", 1, 5, 3, 6},
    {"labelNear", 2, 0, 1, 1},
    {"indicatorDistance", 2, 1, 1, 3},
    {"labelFar", 2, 4, 1, 1},
    {"oglWDepth", 3, 0, 1, 5},
    {"labelFps", 4, 0, 1, 5},
    {"horizontalLayoutLastTwoRow", 4, 5, 1, 1},
    {"horizontalLayoutLastTwoRow2", 4, 6, 1, 5},
    {"horizontalLayoutInfo", 5, 0, 1, 8},
    {"horizontalLayoutSNHW", 5, 9, 1, 1},
    {"horizontalLayoutVersion", 5, 10, 1, 1},
};

const char* nameOfItem(const QLayoutItem* constant_item) {
    auto* item = const_cast<QLayoutItem*>(constant_item);
    static QByteArray name;
    if (item->widget())
        name = item->widget()->objectName().toUtf8();
    else if (item->layout())
        name = item->layout()->objectName().toUtf8();
    else
        name = "spacer";
    return name.constData();
}

TEST_F(LayoutTest, PlacementInTheGrid) {
    ASSERT_EQ(ui.gridLayout->count(), static_cast<int>(std::size(kCells)));
    for (const Cell& cell : kCells) {
        bool found = false;
        for (int i = 0; i < ui.gridLayout->count(); ++i) {
            if (std::string(nameOfItem(ui.gridLayout->itemAt(i))) != cell.name)
                continue;
            found = true;
            int row = -1, column = -1, rows = -1, columns = -1;
            ui.gridLayout->getItemPosition(i, &row, &column, &rows, &columns);
            EXPECT_EQ(row, cell.row) << cell.name;
            EXPECT_EQ(column, cell.column) << cell.name;
            EXPECT_EQ(rows, cell.rows) << cell.name;
            EXPECT_EQ(columns, cell.columns) << cell.name;
        }
        EXPECT_TRUE(found) << cell.name;
    }
    EXPECT_EQ(ui.gridLayout->itemAtPosition(5, 8), nullptr);
}

// A box layout: what it is the layout of, or where it lies, and its items in order.
struct BoxRow {
    const char* name;
    const char* type;
    const char* parent;
    int spacing;
    int left, top, right, bottom;  // -1: as the style has it (or none, where nested)
    std::vector<const char*> items;
};

const BoxRow kBoxes[] = {
    {"verticalLayoutTopLeftOne",
     "QVBoxLayout",
     "gridLayout",
     6,
     -1,
     -1,
     -1,
     -1,
     {"horizontalLayoutTopLeftOne", "btnStart", "btnStop"}},
    {"horizontalLayoutTopLeftOne",
     "QHBoxLayout",
     "verticalLayoutTopLeftOne",
     6,
     -1,
     -1,
     -1,
     -1,
     {"comboBoxCamera", "comboBoxResolution"}},
    {"verticalLayoutDepthMode",
     "QVBoxLayout",
     "groupBoxDepthMode",
     6,
     11,
     11,
     11,
     11,
     {"radioButtonStandard", "radioButtonFill"}},
    {"verticalLayoutWorkMode",
     "QVBoxLayout",
     "groupBoxWorkMode",
     6,
     11,
     11,
     11,
     11,
     {"radioButtonFast", "radioButtonMedium", "radioButtonSlow"}},
    {"verticalLayoutTop",
     "QVBoxLayout",
     "gridLayout",
     6,
     -1,
     -1,
     -1,
     -1,
     {"groupBoxExposure", "groupBoxKovaReplay"}},
    {"horizontalLayoutExposure",
     "QHBoxLayout",
     "groupBoxExposure",
     6,
     10,
     -1,
     10,
     -1,
     {"checkBoxAutoExposure", "horizontalSliderExposure", "labelExposureMS"}},
    {"horizontalLayoutTop",
     "QHBoxLayout",
     "groupBoxKovaReplay",
     6,
     50,
     -1,
     -1,
     -1,
     {"verticalLayoutKovaFileReplay"}},
    {"verticalLayoutKovaFileReplay",
     "QVBoxLayout",
     "horizontalLayoutTop",
     10,
     -1,
     -1,
     -1,
     -1,
     {"horizontalLayoutKovaFileReplay", "horizontalSliderKovaFileReplay"}},
    {"horizontalLayoutKovaFileReplay",
     "QHBoxLayout",
     "verticalLayoutKovaFileReplay",
     10,
     -1,
     -1,
     -1,
     -1,
     {"btnKovaFilePlayPause", "btnKovaFilePlayOneFrame", "labelCurrentFrameIndex", "spacer",
      "checkBoxLoop"}},
    {"verticalLayout",
     "QVBoxLayout",
     "gridLayout",
     6,
     -1,
     -1,
     -1,
     -1,
     {"labelPara1", "spinBoxObsPara1", "labelPara2", "spinBoxObsPara2"}},
    {"verticalLayoutTopLeft",
     "QVBoxLayout",
     "gridLayout",
     6,
     20,
     -1,
     -1,
     -1,
     {"horizontalLayoutImage", "horizontalLayoutDepth"}},
    {"horizontalLayoutImage",
     "QHBoxLayout",
     "verticalLayoutTopLeft",
     6,
     -1,
     -1,
     -1,
     -1,
     {"labelImageType", "comboBoxImageType"}},
    {"horizontalLayoutDepth",
     "QHBoxLayout",
     "verticalLayoutTopLeft",
     6,
     -1,
     -1,
     -1,
     -1,
     {"labelDepthType", "comboBoxDepthType"}},
    {"verticalLayoutTopRight",
     "QVBoxLayout",
     "gridLayout",
     6,
     20,
     -1,
     -1,
     -1,
     {"checkBoxObstacleDetectionUsingIMU", "btnTutorials"}},
    {"horizontalLayoutLastTwoRow",
     "QHBoxLayout",
     "gridLayout",
     10,
     -1,
     -1,
     -1,
     -1,
     {"verticallLayoutMaxDistance"}},
    {"verticallLayoutMaxDistance",
     "QVBoxLayout",
     "horizontalLayoutLastTwoRow",
     10,
     -1,
     -1,
     -1,
     -1,
     {"labelMaxDistance", "horizontalLayoutMaxDistance"}},
    {"horizontalLayoutMaxDistance",
     "QHBoxLayout",
     "verticallLayoutMaxDistance",
     10,
     -1,
     -1,
     -1,
     -1,
     {"horizontalSliderDistanceRange"}},
    {"horizontalLayoutLastTwoRow2",
     "QHBoxLayout",
     "gridLayout",
     10,
     -1,
     -1,
     -1,
     -1,
     {"spacer", "verticalLayoutConfidence", "spacer", "checkBoxKeepRatio", "spacer",
      "checkBoxFlip"}},
    {"verticalLayoutConfidence",
     "QVBoxLayout",
     "horizontalLayoutLastTwoRow2",
     10,
     -1,
     -1,
     -1,
     -1,
     {"labelConfidence", "horizontalLayoutConfidence"}},
    {"horizontalLayoutConfidence",
     "QHBoxLayout",
     "verticalLayoutConfidence",
     10,
     -1,
     -1,
     -1,
     -1,
     {"horizontalSliderConfidence"}},
    {"horizontalLayoutInfo", "QHBoxLayout", "gridLayout", 6, -1, -1, -1, -1, {"labelInfo"}},
    {"horizontalLayoutSNHW",
     "QHBoxLayout",
     "gridLayout",
     6,
     -1,
     -1,
     -1,
     -1,
     {"spacer", "verticalLayoutSNHW"}},
    {"verticalLayoutSNHW",
     "QVBoxLayout",
     "horizontalLayoutSNHW",
     6,
     -1,
     -1,
     -1,
     -1,
     {"labelSN", "labelHW"}},
    {"horizontalLayoutVersion",
     "QHBoxLayout",
     "gridLayout",
     6,
     -1,
     -1,
     -1,
     -1,
     {"spacer", "labelVersion"}},
};

TEST_F(LayoutTest, BoxLayouts) {
    int layouts = 1;  // the grid
    for (const BoxRow& row : kBoxes) {
        SCOPED_TRACE(row.name);
        const QLayout* box = layout(row.name);
        ASSERT_NE(box, nullptr);
        ++layouts;
        EXPECT_STREQ(box->metaObject()->className(), row.type);
        EXPECT_EQ(box->parent()->objectName(), row.parent);
        EXPECT_EQ(box->spacing(), row.spacing);
        const bool of_a_widget = box->parent()->isWidgetType();
        const auto margin = [&](int value, QStyle::PixelMetric metric) {
            if (value != -1)
                return value;
            return of_a_widget ? window.style()->pixelMetric(metric, nullptr, box->parentWidget())
                               : 0;
        };
        EXPECT_EQ(box->contentsMargins(),
                  QMargins(margin(row.left, QStyle::PM_LayoutLeftMargin),
                           margin(row.top, QStyle::PM_LayoutTopMargin),
                           margin(row.right, QStyle::PM_LayoutRightMargin),
                           margin(row.bottom, QStyle::PM_LayoutBottomMargin)));
        ASSERT_EQ(box->count(), static_cast<int>(row.items.size()));
        for (int i = 0; i < box->count(); ++i) {
            EXPECT_STREQ(nameOfItem(box->itemAt(i)), row.items[static_cast<std::size_t>(i)]);
            if (const QSpacerItem* spacer = box->itemAt(i)->spacerItem()) {
                EXPECT_EQ(spacer->sizeHint(), QSize(40, 20));
                EXPECT_EQ(spacer->sizePolicy().horizontalPolicy(), QSizePolicy::Expanding);
                EXPECT_EQ(spacer->sizePolicy().verticalPolicy(), QSizePolicy::Minimum);
            }
        }
    }
    EXPECT_EQ(ui.gridLayoutWidget->findChildren<QLayout*>().size(), layouts);
}

constexpr const char* kCentral = "gridLayoutWidget";

struct WidgetRow {
    const char* name;
    const char* type;
    const char* parent;
};

// In the order in which they are made, which is the order of the keyboard focus.
constexpr WidgetRow kWidgets[] = {
    {"oglWPointCloud", "kova::qwidget::PointCloudQOpenGLWidget", kCentral},
    {"comboBoxCamera", "QComboBox", kCentral},
    {"comboBoxResolution", "QComboBox", kCentral},
    {"btnStart", "QPushButton", kCentral},
    {"btnStop", "QPushButton", kCentral},
    {"groupBoxDepthMode", "QGroupBox", kCentral},
    {"radioButtonStandard", "QRadioButton", "groupBoxDepthMode"},
    {"radioButtonFill", "QRadioButton", "groupBoxDepthMode"},
    {"groupBoxWorkMode", "QGroupBox", kCentral},
    {"radioButtonFast", "QRadioButton", "groupBoxWorkMode"},
    {"radioButtonMedium", "QRadioButton", "groupBoxWorkMode"},
    {"radioButtonSlow", "QRadioButton", "groupBoxWorkMode"},
    {"groupBoxExposure", "QGroupBox", kCentral},
    {"checkBoxAutoExposure", "QCheckBox", "groupBoxExposure"},
    {"horizontalSliderExposure", "kova::qwidget::MouseQSlider", "groupBoxExposure"},
    {"labelExposureMS", "QLabel", "groupBoxExposure"},
    {"groupBoxKovaReplay", "QGroupBox", kCentral},
    {"btnKovaFilePlayPause", "QPushButton", "groupBoxKovaReplay"},
    {"btnKovaFilePlayOneFrame", "QPushButton", "groupBoxKovaReplay"},
    {"labelCurrentFrameIndex", "QLabel", "groupBoxKovaReplay"},
    {"checkBoxLoop", "QCheckBox", "groupBoxKovaReplay"},
    {"horizontalSliderKovaFileReplay", "kova::qwidget::MouseQSlider", "groupBoxKovaReplay"},
    {"labelPara1", "QLabel", kCentral},
    {"spinBoxObsPara1", "QSpinBox", kCentral},
    {"labelPara2", "QLabel", kCentral},
    {"spinBoxObsPara2", "QSpinBox", kCentral},
    {"labelImageType", "QLabel", kCentral},
    {"comboBoxImageType", "QComboBox", kCentral},
    {"labelDepthType", "QLabel", kCentral},
    {"comboBoxDepthType", "QComboBox", kCentral},
    {"checkBoxObstacleDetectionUsingIMU", "QCheckBox", kCentral},
    {"btnTutorials", "QPushButton", kCentral},
    {"oglWDepth", "kova::qwidget::CPUMouseQOpenGLWidget", kCentral},
    {"labelNear", "QLabel", kCentral},
    {"labelFar", "QLabel", kCentral},
    {"indicatorDistance", "kova::qwidget::IndicatorWidget", kCentral},
    {"oglWImage", "kova::qwidget::CPUMouseQOpenGLWidget", kCentral},
    {"labelFps", "QLabel", kCentral},
    {"labelMaxDistance", "QLabel", kCentral},
    {"horizontalSliderDistanceRange", "kova::qwidget::QxtSpanSlider", kCentral},
    {"labelConfidence", "QLabel", kCentral},
    {"horizontalSliderConfidence", "kova::qwidget::MouseQSlider", kCentral},
    {"checkBoxKeepRatio", "QCheckBox", kCentral},
    {"checkBoxFlip", "QCheckBox", kCentral},
    {"labelInfo", "QLabel", kCentral},
    {"labelSN", "QLabel", kCentral},
    {"labelHW", "QLabel", kCentral},
    {"labelVersion", "QLabel", kCentral},
};

QStringList namedChildren(const QWidget* parent) {
    QStringList names;
    for (const QObject* child : parent->children())
        if (child->isWidgetType() && !child->objectName().startsWith("qt_"))
            names << child->objectName();
    return names;
}

TEST_F(LayoutTest, WidgetTree) {
    QHash<QString, QStringList> children;
    for (const WidgetRow& row : kWidgets) {
        SCOPED_TRACE(row.name);
        const QWidget* found = widget(row.name);
        ASSERT_NE(found, nullptr);
        EXPECT_STREQ(found->metaObject()->className(), row.type);
        EXPECT_EQ(found->parent()->objectName(), row.parent);
        children[row.parent] << row.name;
    }
    // Nothing else, and in the order in which they were made.
    for (auto it = children.cbegin(); it != children.cend(); ++it)
        EXPECT_EQ(namedChildren(widget(it.key().toUtf8())), it.value()) << qPrintable(it.key());
}

TEST_F(LayoutTest, SizePolicies) {
    struct Row {
        const char* name;
        QSizePolicy::Policy horizontal, vertical;
    };
    const Row rows[] = {
        {"groupBoxExposure", QSizePolicy::Preferred, QSizePolicy::Minimum},
        {"comboBoxImageType", QSizePolicy::Expanding, QSizePolicy::Fixed},
        {"comboBoxDepthType", QSizePolicy::Expanding, QSizePolicy::Fixed},
        {"labelFps", QSizePolicy::Expanding, QSizePolicy::Fixed},
        {"labelInfo", QSizePolicy::Expanding, QSizePolicy::Fixed},
    };
    QStringList set;
    for (const Row& row : rows) {
        set << row.name;
        const QSizePolicy policy = widget(row.name)->sizePolicy();
        EXPECT_EQ(policy.horizontalPolicy(), row.horizontal) << row.name;
        EXPECT_EQ(policy.verticalPolicy(), row.vertical) << row.name;
        EXPECT_EQ(policy.horizontalStretch(), 0) << row.name;
        EXPECT_EQ(policy.verticalStretch(), 0) << row.name;
    }
    // All others have the policy of a fresh widget of their class.
    const QLabel label;
    const QComboBox combo;
    const QPushButton button;
    const QCheckBox check;
    const QRadioButton radio;
    const QSpinBox spin;
    const QGroupBox group;
    for (const WidgetRow& row : kWidgets) {
        if (set.contains(row.name))
            continue;
        for (const QWidget* fresh : std::initializer_list<const QWidget*>{
                 &label, &combo, &button, &check, &radio, &spin, &group}) {
            if (std::string(fresh->metaObject()->className()) == row.type) {
                EXPECT_EQ(widget(row.name)->sizePolicy(), fresh->sizePolicy()) << row.name;
            }
        }
    }
}

TEST_F(LayoutTest, SlidersAndSpinBoxes) {
    struct Row {
        const char* name;
        int minimum, maximum, page_step, value;
    };
    for (const Row& row : {Row{"horizontalSliderExposure", 1, 2000, 1, 1},
                           {"horizontalSliderKovaFileReplay", 0, 1000, 1, 0},
                           {"horizontalSliderConfidence", 1, 100, 10, 100}}) {
        const auto* slider = qobject_cast<QSlider*>(widget(row.name));
        ASSERT_NE(slider, nullptr) << row.name;
        EXPECT_EQ(slider->orientation(), Qt::Horizontal) << row.name;
        EXPECT_EQ(slider->minimum(), row.minimum) << row.name;
        EXPECT_EQ(slider->maximum(), row.maximum) << row.name;
        EXPECT_EQ(slider->pageStep(), row.page_step) << row.name;
        EXPECT_EQ(slider->value(), row.value) << row.name;
    }
    const qwidget::QxtSpanSlider fresh;
    EXPECT_EQ(ui.horizontalSliderDistanceRange->orientation(), Qt::Horizontal);
    EXPECT_EQ(ui.horizontalSliderDistanceRange->maximum(), fresh.maximum());
    EXPECT_EQ(ui.horizontalSliderDistanceRange->upperValue(), fresh.upperValue());

    for (const auto& [spin, value] : {std::pair(ui.spinBoxObsPara1, 2), {ui.spinBoxObsPara2, 4}}) {
        EXPECT_EQ(spin->minimum(), 0);
        EXPECT_EQ(spin->maximum(), 10);
        EXPECT_EQ(spin->value(), value);
    }
}

TEST_F(LayoutTest, CheckedAndEnabled) {
    struct Row {
        const char* name;
        bool checked, enabled;
    };
    for (const Row& row : {Row{"radioButtonStandard", true, true},
                           {"radioButtonFill", false, true},
                           {"radioButtonFast", true, true},
                           {"radioButtonMedium", false, true},
                           {"radioButtonSlow", false, true},
                           {"checkBoxAutoExposure", true, true},
                           {"checkBoxLoop", false, true},
                           {"checkBoxObstacleDetectionUsingIMU", false, false},
                           {"checkBoxKeepRatio", true, true},
                           {"checkBoxFlip", false, true}}) {
        const auto* button = qobject_cast<QAbstractButton*>(widget(row.name));
        ASSERT_NE(button, nullptr) << row.name;
        EXPECT_EQ(button->isChecked(), row.checked) << row.name;
        EXPECT_EQ(button->isEnabled(), row.enabled) << row.name;
    }
    for (const WidgetRow& row : kWidgets)
        EXPECT_EQ(widget(row.name)->isEnabled(),
                  std::string(row.name) != "checkBoxObstacleDetectionUsingIMU")
            << row.name;
}

TEST_F(LayoutTest, ListsAreEmptyAndLabelsCentred) {
    for (const QComboBox* list :
         {ui.comboBoxCamera, ui.comboBoxResolution, ui.comboBoxImageType, ui.comboBoxDepthType})
        EXPECT_EQ(list->count(), 0);
    EXPECT_EQ(ui.labelNear->alignment(), Qt::AlignCenter);
    EXPECT_EQ(ui.labelFar->alignment(), Qt::AlignCenter);
}

struct TextRow {
    const char* name;  // "" is the window
    const char* property;
    const char* text;
};

constexpr TextRow kTexts[] = {
    {"", "windowTitle", "Tessival Gantrel"},
    {"btnStart", "text", "Open"},
    {"btnStop", "text", "Close"},
    {"groupBoxDepthMode", "title", "DepthMode"},
    {"radioButtonStandard", "text", "Standard"},
    {"radioButtonFill", "text", "Fill"},
    {"groupBoxWorkMode", "title", "WorkMode"},
    {"radioButtonFast", "text", "Fast"},
    {"radioButtonMedium", "text", "Medium"},
    {"radioButtonSlow", "text", "Slow"},
    {"groupBoxExposure", "title", "Exposure"},
    {"checkBoxAutoExposure", "text", "Auto"},
    {"labelExposureMS", "text", ""},
    {"groupBoxKovaReplay", "title", ".kova Replay"},
    {"btnKovaFilePlayPause", "text", "Pause"},
    {"btnKovaFilePlayOneFrame", "text", "Play 1 frame"},
    {"labelCurrentFrameIndex", "text", ""},
    {"checkBoxLoop", "text", "Loop"},
    {"labelPara1", "text", "Obstacle Min Height"},
    {"labelPara2", "text", "Ground Min Area"},
    {"labelImageType", "text", "Up"},
    {"labelDepthType", "text", "Down"},
    {"checkBoxObstacleDetectionUsingIMU", "text", "Using IMU"},
    {"btnTutorials", "text", "Tutorials"},
    {"labelNear", "text", "Near"},
    {"labelFar", "text", "Far"},
    {"labelMaxDistance", "text", "Distance Range"},
    {"labelConfidence", "text", "Confidence 100%"},
    {"checkBoxKeepRatio", "text", "Keep Ratio"},
    {"checkBoxFlip", "text", "Flip"},
};

TEST_F(LayoutTest, Texts) {
    for (const TextRow& row : kTexts) {
        const QWidget* target = *row.name ? widget(row.name) : &window;
        ASSERT_NE(target, nullptr) << row.name;
        EXPECT_EQ(target->property(row.property).toString().toStdString(), row.text) << row.name;
    }
    for (const char* name : {"labelFps", "labelInfo", "labelSN", "labelHW", "labelVersion"})
        EXPECT_TRUE(qobject_cast<QLabel*>(widget(name))->text().isEmpty()) << name;
}

TEST_F(LayoutTest, ConnectSlotsByNameFindsNoAutomaticSlot) {
    const QMetaObject& meta = MainWindow::staticMetaObject;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        EXPECT_FALSE(meta.method(i).name().startsWith("on_")) << meta.method(i).name().data();
}

TEST_F(LayoutTest, ShrinkingStopsAtTheMinimumSizeOfTheWindow) {
    window.show();
    window.resize(10, 10);
    handleEvents();
    EXPECT_EQ(window.size(), QSize(800, 500));
    // The grid's rows alone want more than that.
    EXPECT_GE(ui.gridLayout->minimumSize().height(),
              100 + 300 + 20 + 300 + 50 + 50 + 5 * 10 + 2 * 10);
}

TEST_F(LayoutTest, ColumnFiveTakesFourSharesOfTheExtraWidth) {
    window.show();
    const auto widths = [&](int window_width) {
        window.resize(window_width, 1400);
        handleEvents();
        std::vector<int> all;
        for (int column = 0; column < 11; ++column)
            all.push_back(ui.gridLayout->cellRect(1, column).width());
        return all;
    };
    const std::vector<int> before = widths(4000);
    const std::vector<int> after = widths(4000 + 14 * 20);
    for (std::size_t column = 0; column < 11; ++column)
        EXPECT_NEAR(after[column] - before[column], column == 5 ? 4 * 20 : 20, 1) << column;
}

}  // namespace
}  // namespace kova::test
