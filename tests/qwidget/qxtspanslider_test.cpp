#include "qwidget/qxtspanslider.h"

#include <QMetaEnum>
#include <QMetaMethod>
#include <QMetaProperty>

#include "tests/qwidget/span_slider_fixture.h"

namespace kova::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> methodsOf(const QMetaObject& meta, QMetaMethod::MethodType type,
                                   QMetaMethod::Access access) {
    std::vector<std::string> names;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        if (method.methodType() == type && method.access() == access)
            names.push_back(method.methodSignature().toStdString());
    }
    return names;
}

TEST_F(SpanSliderTest, MetaObjectListsSignalsInOrder) {
    const QMetaObject& meta = QxtSpanSlider::staticMetaObject;
    EXPECT_STREQ(meta.className(), "kova::qwidget::QxtSpanSlider");
    EXPECT_STREQ(meta.superClass()->className(), "QSlider");
    EXPECT_THAT(methodsOf(meta, QMetaMethod::Signal, QMetaMethod::Public),
                ElementsAre("spanChanged(int,int)", "lowerValueChanged(int)",
                            "upperValueChanged(int)", "lowerPositionChanged(int)",
                            "upperPositionChanged(int)", "sliderPressed(SpanHandle)"));
}

TEST_F(SpanSliderTest, MetaObjectListsSlotsInOrder) {
    EXPECT_THAT(methodsOf(QxtSpanSlider::staticMetaObject, QMetaMethod::Slot, QMetaMethod::Public),
                ElementsAre("setLowerValue(int)", "setUpperValue(int)", "setSpan(int,int)",
                            "setLowerPosition(int)", "setUpperPosition(int)"));
    EXPECT_THAT(
        methodsOf(QxtSpanSliderPrivate::staticMetaObject, QMetaMethod::Slot, QMetaMethod::Private),
        ElementsAre("updateRange(int,int)", "movePressedHandle()"));
}

TEST_F(SpanSliderTest, MetaObjectListsPropertiesThatAreReadAndWritten) {
    const QMetaObject& meta = QxtSpanSlider::staticMetaObject;
    std::vector<std::string> names;
    for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i) {
        EXPECT_TRUE(meta.property(i).isReadable() && meta.property(i).isWritable());
        names.push_back(meta.property(i).name());
    }
    EXPECT_THAT(names, ElementsAre("lowerValue", "upperValue", "lowerPosition", "upperPosition",
                                   "handleMovementMode"));
    slider.setProperty("upperValue", 90);
    slider.setProperty("lowerValue", 10);
    EXPECT_EQ(values(), Span(10, 90));
    slider.setProperty("lowerPosition", 20);
    slider.setProperty("upperPosition", 80);
    EXPECT_EQ(positions(), Span(20, 80));
    slider.setProperty("handleMovementMode", QxtSpanSlider::NoOverlapping);
    EXPECT_EQ(slider.handleMovementMode(), QxtSpanSlider::NoOverlapping);
    EXPECT_EQ(slider.property("upperPosition").toInt(), 80);
}

TEST_F(SpanSliderTest, MetaObjectKnowsTheEnumerations) {
    const QMetaObject& meta = QxtSpanSlider::staticMetaObject;
    const auto entries = [&](const char* name) {
        const QMetaEnum type = meta.enumerator(meta.indexOfEnumerator(name));
        std::vector<std::string> keys;
        for (int i = 0; i < type.keyCount(); ++i)
            keys.push_back(std::string(type.key(i)) + "=" + std::to_string(type.value(i)));
        return keys;
    };
    EXPECT_THAT(entries("HandleMovementMode"),
                ElementsAre("FreeMovement=0", "NoCrossing=1", "NoOverlapping=2"));
    EXPECT_THAT(entries("SpanHandle"),
                ElementsAre("SpanHandleNone=0", "SpanHandleLower=1", "SpanHandleUpper=2"));
}

TEST(QxtSpanSlider, StartsWithTheInitialState) {
    OpenSpanSlider slider;
    const QxtSpanSliderPrivate& d = slider.d();
    EXPECT_EQ(d.lower_value, 0);
    EXPECT_EQ(d.upper_value, 0);
    EXPECT_EQ(d.lower_position, 0);
    EXPECT_EQ(d.upper_position, 0);
    EXPECT_EQ(d.press_offset, 0);
    EXPECT_EQ(d.press_value, 0);
    EXPECT_EQ(d.last_pressed, QxtSpanSlider::SpanHandleNone);
    EXPECT_EQ(d.main_control, QxtSpanSlider::SpanHandleLower);
    EXPECT_EQ(d.lower_pressed, QStyle::SC_None);
    EXPECT_EQ(d.upper_pressed, QStyle::SC_None);
    EXPECT_EQ(d.movement, QxtSpanSlider::FreeMovement);
    EXPECT_FALSE(d.first_movement);
    EXPECT_FALSE(d.block_tracking);
    EXPECT_EQ(d.owner, &slider);
    EXPECT_EQ(slider.orientation(), QSlider().orientation());
    EXPECT_EQ(OpenSpanSlider(Qt::Horizontal).orientation(), Qt::Horizontal);
}

TEST_F(SpanSliderTest, SetSpanSortsItsValuesAndEmitsLowerUpperSpan) {
    slider.setSpan(80, 20);
    EXPECT_EQ(values(), Span(20, 80));
    EXPECT_EQ(positions(), Span(20, 80));
    EXPECT_THAT(events, ElementsAre("lower 20", "upper 80", "span 20 80"));
}

TEST_F(SpanSliderTest, SetSpanClampsIntoTheRange) {
    slider.setRange(10, 90);
    events.clear();
    slider.setSpan(-500, 500);
    EXPECT_EQ(values(), Span(10, 90));
}

TEST_F(SpanSliderTest, SetSpanWithUnchangedValuesEmitsNothingAndDoesNotRepaint) {
    start(20, 80);
    show();
    const int paints = slider.paints;
    slider.setSpan(20, 80);
    slider.setSpan(80, 20);
    settle();
    EXPECT_THAT(events, IsEmpty());
    EXPECT_EQ(slider.paints, paints);
    slider.setSpan(20, 81);
    settle();
    EXPECT_THAT(events, ElementsAre("upper 81", "span 20 81"));
    EXPECT_EQ(slider.paints, paints + 1);
}

TEST_F(SpanSliderTest, SetSpanResetsThePositionsOnlyOfWhatChanged) {
    slider.setTracking(false);
    start(20, 80);
    slider.setUpperPosition(70);
    slider.setSpan(30, 80);
    EXPECT_EQ(positions(), Span(30, 70));
}

TEST_F(SpanSliderTest, LowerValueAboveTheUpperOneMakesTheOldUpperValueTheLowerOne) {
    start(20, 50);
    slider.setLowerValue(70);
    EXPECT_EQ(values(), Span(50, 70));
    slider.setUpperValue(10);
    EXPECT_EQ(values(), Span(10, 50));
    EXPECT_THAT(events, ElementsAre("lower 50", "upper 70", "span 50 70", "lower 10", "upper 50",
                                    "span 10 50"));
}

TEST_F(SpanSliderTest, ShrinkingTheRangeClampsTheSpanAndEmitsTheSignals) {
    start(20, 80);
    slider.setRange(30, 60);
    EXPECT_EQ(values(), Span(30, 60));
    EXPECT_EQ(positions(), Span(30, 60));
    EXPECT_THAT(events, ElementsAre("lower 30", "upper 60", "span 30 60"));
}

TEST_F(SpanSliderTest, WideningTheRangeLeavesTheSpanAlone) {
    start(20, 80);
    slider.setRange(-100, 1000);
    EXPECT_EQ(values(), Span(20, 80));
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(SpanSliderTest, PositionCommitsAtOnceWithTracking) {
    start(20, 80);
    slider.setLowerPosition(30);
    slider.setUpperPosition(70);
    EXPECT_EQ(values(), Span(30, 70));
    EXPECT_THAT(events, ElementsAre("lower 30", "span 30 80", "upper 70", "span 30 70"));
    events.clear();
    slider.setLowerPosition(30);
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(SpanSliderTest, PositionIsOnlyStoredAndRepaintedWithoutTracking) {
    slider.setTracking(false);
    start(20, 80);
    show();
    const int paints = slider.paints;
    slider.setLowerPosition(30);
    settle();
    slider.setUpperPosition(70);
    settle();
    EXPECT_EQ(values(), Span(20, 80));
    EXPECT_EQ(positions(), Span(30, 70));
    EXPECT_EQ(slider.paints, paints + 2);
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(SpanSliderTest, PositionSignalsAreEmittedWhileTheSliderIsDown) {
    slider.setTracking(false);
    start(20, 80);
    slider.setSliderDown(true);
    slider.setLowerPosition(30);
    slider.setUpperPosition(70);
    EXPECT_THAT(events, ElementsAre("lower at 30", "upper at 70"));
}

TEST_F(SpanSliderTest, PositionDoesNotCommitWhileTrackingIsBlocked) {
    start(20, 80);
    slider.d().block_tracking = true;
    slider.setLowerPosition(30);
    EXPECT_EQ(values(), Span(20, 80));
    EXPECT_EQ(positions(), Span(30, 80));
}

TEST_F(SpanSliderTest, ReleaseCommitsIfTheHandlePressedLastHasMoved) {
    slider.setTracking(false);
    for (const auto handle : {QxtSpanSlider::SpanHandleLower, QxtSpanSlider::SpanHandleUpper}) {
        const bool lower = handle == QxtSpanSlider::SpanHandleLower;
        start(20, 80);
        slider.d().last_pressed = handle;
        slider.setSliderDown(true);
        // The other handle alone is not looked at ...
        if (lower)
            slider.setUpperPosition(70);
        else
            slider.setLowerPosition(30);
        slider.setSliderDown(false);
        EXPECT_EQ(values(), Span(20, 80));
        // ... but it is committed together with the one that was pressed.
        slider.setSliderDown(true);
        if (lower)
            slider.setLowerPosition(30);
        else
            slider.setUpperPosition(70);
        slider.d().block_tracking = true;
        slider.setSliderDown(false);
        EXPECT_EQ(values(), Span(30, 70));
        EXPECT_FALSE(slider.d().block_tracking);
    }
}

TEST_F(SpanSliderTest, ReleaseWithoutAPressedHandleCommitsNothing) {
    slider.setTracking(false);
    start(20, 80);
    slider.setSliderDown(true);
    slider.setLowerPosition(30);
    slider.setSliderDown(false);
    EXPECT_EQ(values(), Span(20, 80));
}

TEST_F(SpanSliderTest, SwappingTheControlsLeavesThePositions) {
    start(20, 80);
    QxtSpanSliderPrivate& d = slider.d();
    d.lower_pressed = QStyle::SC_SliderHandle;
    d.upper_pressed = QStyle::SC_SliderGroove;
    d.swapControls();
    EXPECT_EQ(d.lower_value, 80);
    EXPECT_EQ(d.upper_value, 20);
    EXPECT_EQ(values(), Span(20, 80)) << "reported values are sorted";
    EXPECT_EQ(positions(), Span(20, 80));
    EXPECT_EQ(d.lower_pressed, QStyle::SC_SliderGroove);
    EXPECT_EQ(d.upper_pressed, QStyle::SC_SliderHandle);
    EXPECT_EQ(d.last_pressed, QxtSpanSlider::SpanHandleUpper) << "from none";
    EXPECT_EQ(d.main_control, QxtSpanSlider::SpanHandleUpper);
    d.swapControls();
    EXPECT_EQ(d.last_pressed, QxtSpanSlider::SpanHandleLower);
    EXPECT_EQ(d.main_control, QxtSpanSlider::SpanHandleLower);
}

// --- Keyboard -------------------------------------------------------------------------------

struct KeyRow {
    const char* name;
    int key;
    Qt::Orientation orientation;
    bool inverted_appearance;
    bool inverted_controls;
    bool upper_is_main;
    Span expected;  // from (40, 60) with a step of 5
};

class SpanSliderKeyTest : public SpanSliderTest, public testing::WithParamInterface<KeyRow> {};

TEST_P(SpanSliderKeyTest, MovesTheHandleOfTheTable) {
    const KeyRow& row = GetParam();
    if (row.orientation == Qt::Vertical)
        makeVertical();
    slider.setInvertedAppearance(row.inverted_appearance);
    slider.setInvertedControls(row.inverted_controls);
    start(40, 60);
    if (row.upper_is_main)
        slider.d().main_control = QxtSpanSlider::SpanHandleUpper;
    EXPECT_TRUE(key(row.key));
    EXPECT_EQ(values(), row.expected);
    EXPECT_EQ(positions(), row.expected);
    EXPECT_EQ(slider.d().main_control,
              row.upper_is_main ? QxtSpanSlider::SpanHandleUpper : QxtSpanSlider::SpanHandleLower);
    EXPECT_FALSE(slider.d().block_tracking);
}

constexpr auto H = Qt::Horizontal;
constexpr auto V = Qt::Vertical;
const KeyRow kKeys[] = {
    {"Home", Qt::Key_Home, H, false, false, false, {0, 60}},
    {"HomeMainUpper", Qt::Key_Home, H, false, false, true, {0, 60}},
    {"HomeVertical", Qt::Key_Home, V, false, false, false, {0, 60}},
    {"End", Qt::Key_End, H, false, false, false, {40, 100}},
    {"EndMainUpper", Qt::Key_End, H, false, false, true, {40, 100}},
    {"EndVertical", Qt::Key_End, V, false, false, false, {40, 100}},
    {"Left", Qt::Key_Left, H, false, false, false, {35, 60}},
    {"LeftInverted", Qt::Key_Left, H, true, false, false, {45, 60}},
    {"LeftInvertedControls", Qt::Key_Left, H, false, true, false, {35, 60}},
    {"LeftMainUpper", Qt::Key_Left, H, false, false, true, {40, 55}},
    {"LeftVertical", Qt::Key_Left, V, false, false, false, {40, 55}},
    {"LeftVerticalInverted", Qt::Key_Left, V, true, false, false, {40, 65}},
    {"LeftVerticalMainUpper", Qt::Key_Left, V, false, false, true, {35, 60}},
    {"Right", Qt::Key_Right, H, false, false, false, {45, 60}},
    {"RightInverted", Qt::Key_Right, H, true, false, false, {35, 60}},
    {"RightInvertedControls", Qt::Key_Right, H, false, true, false, {45, 60}},
    {"RightMainUpper", Qt::Key_Right, H, false, false, true, {40, 65}},
    {"RightVertical", Qt::Key_Right, V, false, false, false, {40, 65}},
    {"RightVerticalInverted", Qt::Key_Right, V, true, false, false, {40, 55}},
    {"Up", Qt::Key_Up, H, false, false, false, {40, 65}},
    {"UpInvertedControls", Qt::Key_Up, H, false, true, false, {40, 55}},
    {"UpInvertedAppearance", Qt::Key_Up, H, true, false, false, {40, 65}},
    {"UpMainUpper", Qt::Key_Up, H, false, false, true, {45, 60}},
    {"UpVertical", Qt::Key_Up, V, false, false, false, {45, 60}},
    {"UpVerticalInvertedControls", Qt::Key_Up, V, false, true, false, {35, 60}},
    {"UpVerticalMainUpper", Qt::Key_Up, V, false, false, true, {40, 65}},
    {"Down", Qt::Key_Down, H, false, false, false, {40, 55}},
    {"DownInvertedControls", Qt::Key_Down, H, false, true, false, {40, 65}},
    {"DownInvertedAppearance", Qt::Key_Down, H, true, false, false, {40, 55}},
    {"DownVertical", Qt::Key_Down, V, false, false, false, {35, 60}},
    {"DownVerticalInvertedControls", Qt::Key_Down, V, false, true, false, {45, 60}},
};

INSTANTIATE_TEST_SUITE_P(Table, SpanSliderKeyTest, testing::ValuesIn(kKeys),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(SpanSliderTest, AnyOtherKeyIsIgnoredAfterTheSlidersOwnHandling) {
    start(40, 60);
    slider.setPageStep(10);
    EXPECT_FALSE(key(Qt::Key_PageUp));
    EXPECT_EQ(values(), Span(40, 60));
    EXPECT_EQ(slider.value(), 10) << "QAbstractSlider came first";
    EXPECT_FALSE(key(Qt::Key_A));
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(SpanSliderTest, StepsAreBoundedByTheRange) {
    start(2, 97);
    key(Qt::Key_Left);
    key(Qt::Key_Up);
    EXPECT_EQ(values(), Span(0, 100));
}

TEST_F(SpanSliderTest, StepStopsAtTheOtherValueWithoutCrossing) {
    slider.setHandleMovementMode(QxtSpanSlider::NoCrossing);
    start(58, 60);
    key(Qt::Key_Right);
    EXPECT_EQ(values(), Span(60, 60));
    start(58, 60);
    key(Qt::Key_Down);
    EXPECT_EQ(values(), Span(58, 58));
    key(Qt::Key_End);
    key(Qt::Key_Home);
    EXPECT_EQ(values(), Span(0, 100));
}

TEST_F(SpanSliderTest, StepStopsOneUnitBeforeTheOtherValueWithoutOverlapping) {
    slider.setHandleMovementMode(QxtSpanSlider::NoOverlapping);
    start(58, 60);
    key(Qt::Key_Right);
    EXPECT_EQ(values(), Span(59, 60));
    start(58, 60);
    key(Qt::Key_Down);
    EXPECT_EQ(values(), Span(58, 59));
}

TEST_F(SpanSliderTest, StepOfFiveFrom48And50InFreeMovementEndsAt48And53) {
    start(48, 50);
    key(Qt::Key_Right);
    EXPECT_EQ(values(), Span(48, 53));
    EXPECT_EQ(positions(), Span(48, 53));
    EXPECT_EQ(slider.d().main_control, QxtSpanSlider::SpanHandleUpper);
    EXPECT_EQ(slider.d().last_pressed, QxtSpanSlider::SpanHandleUpper);
    EXPECT_THAT(events, ElementsAre("lower 48", "span 48 48", "upper 53", "span 48 53"));
    // The main control is the upper one now and goes on.
    key(Qt::Key_Right);
    EXPECT_EQ(values(), Span(48, 58));
}

TEST_F(SpanSliderTest, StepOfTheUpperHandleBelowTheLowerOneSwapsTheControls) {
    start(50, 52);
    slider.d().main_control = QxtSpanSlider::SpanHandleUpper;
    key(Qt::Key_Left);
    EXPECT_EQ(values(), Span(47, 52));
    EXPECT_EQ(slider.d().main_control, QxtSpanSlider::SpanHandleLower);
    EXPECT_THAT(events, ElementsAre("lower 47", "span 47 50", "upper 52", "span 47 52"));
}

TEST_F(SpanSliderTest, StepWithTheSliderDownEmitsThePositionSignal) {
    start(40, 60);
    slider.setSliderDown(true);
    key(Qt::Key_Right);
    EXPECT_THAT(events, ElementsAre("lower at 45", "lower 45", "span 45 60"));
}

TEST_F(SpanSliderTest, ActionsWithoutMovementCommitThePositions) {
    for (const auto action : {QAbstractSlider::SliderMove, QAbstractSlider::SliderNoAction}) {
        slider.setTracking(false);
        start(40, 60);
        slider.setLowerPosition(30);
        slider.setUpperPosition(70);
        slider.d().triggerAction(action, true);
        EXPECT_EQ(values(), Span(30, 70));
    }
}

std::vector<std::string> warnings;
void collectWarning(QtMsgType type, const QMessageLogContext&, const QString& text) {
    warnings.push_back((type == QtWarningMsg ? "warning: " : "other: ") + text.toStdString());
}

TEST_F(SpanSliderTest, UnknownActionLogsAWarningAndMovesTheLowerHandleToZero) {
    for (const bool main : {true, false}) {
        start(40, 60);
        warnings.clear();
        const QtMessageHandler before = qInstallMessageHandler(collectWarning);
        slider.d().triggerAction(QAbstractSlider::SliderPageStepAdd, main);
        qInstallMessageHandler(before);
        EXPECT_THAT(warnings,
                    ElementsAre("warning: QxtSpanSliderPrivate::triggerAction: Unknown action"));
        EXPECT_EQ(values(), Span(0, 60));
    }
}

}  // namespace
}  // namespace kova::test
