#include "tests/qwidget/span_slider_fixture.h"

namespace kova::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Clicks and drags with the slider on the screen.
class SpanSliderMouseTest : public SpanSliderTest {
protected:
    void begin(int lower, int upper) {
        show();
        start(lower, upper);
    }
};

TEST_F(SpanSliderMouseTest, PressOnAHandleTakesTheSliderDown) {
    begin(20, 80);
    press(at(20) + QPoint(2, 0));
    QxtSpanSliderPrivate& d = slider.d();
    EXPECT_TRUE(slider.isSliderDown());
    EXPECT_EQ(d.press_value, 20);
    EXPECT_EQ(d.press_offset, 7);
    EXPECT_EQ(d.last_pressed, QxtSpanSlider::SpanHandleLower);
    EXPECT_EQ(d.lower_pressed, QStyle::SC_SliderHandle);
    EXPECT_EQ(d.upper_pressed, QStyle::SC_SliderGroove);
    EXPECT_TRUE(d.first_movement);
    EXPECT_THAT(events, ElementsAre("pressed 1"));
    release(at(20) + QPoint(2, 0));
    press(at(80) - QPoint(5, 0));
    EXPECT_EQ(d.press_value, 80);
    EXPECT_EQ(d.press_offset, 0);
    EXPECT_EQ(d.last_pressed, QxtSpanSlider::SpanHandleUpper);
    EXPECT_THAT(events, ElementsAre("pressed 1", "released", "pressed 2"));
    release(at(80) - QPoint(5, 0));
}

TEST_F(SpanSliderMouseTest, PressedHandleIsRepainted) {
    begin(20, 80);
    settle();
    const int paints = slider.paints;
    press(at(20));
    settle();
    EXPECT_EQ(slider.paints, paints + 1);
    release(at(20));
}

TEST_F(SpanSliderMouseTest, PressOnTheGrooveTakesNoHandle) {
    begin(20, 80);
    QMouseEvent event(QEvent::MouseButtonPress, at(50), Qt::LeftButton, Qt::LeftButton, {});
    QCoreApplication::sendEvent(&slider, &event);
    EXPECT_TRUE(event.isAccepted());
    EXPECT_FALSE(slider.isSliderDown());
    EXPECT_TRUE(slider.d().first_movement);
    EXPECT_EQ(slider.value(), 0) << "no paging";
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(SpanSliderMouseTest, UpperHandleWinsWhereHandlesOverlap) {
    begin(50, 54);
    press({57, 10});  // in both handles
    EXPECT_EQ(slider.d().last_pressed, QxtSpanSlider::SpanHandleUpper);
    EXPECT_EQ(slider.d().lower_pressed, QStyle::SC_None) << "the lower one is not even tried";
    release({57, 10});
    press({52, 10});  // left of the upper one
    EXPECT_EQ(slider.d().last_pressed, QxtSpanSlider::SpanHandleLower);
    release({52, 10});
}

TEST_F(SpanSliderMouseTest, PressWhenMinimumEqualsMaximumIsIgnored) {
    slider.setRange(7, 7);
    events.clear();
    QMouseEvent event(QEvent::MouseButtonPress, QPointF(5, 10), Qt::LeftButton, Qt::LeftButton, {});
    QCoreApplication::sendEvent(&slider, &event);
    EXPECT_FALSE(event.isAccepted());
    EXPECT_FALSE(slider.isSliderDown());
    EXPECT_FALSE(slider.d().first_movement);
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(SpanSliderMouseTest, PressOfASecondButtonIsIgnored) {
    start(20, 80);
    QMouseEvent event(QEvent::MouseButtonPress, at(20), Qt::RightButton,
                      Qt::LeftButton | Qt::RightButton, {});
    QCoreApplication::sendEvent(&slider, &event);
    EXPECT_FALSE(event.isAccepted());
    EXPECT_FALSE(slider.isSliderDown());
}

TEST_F(SpanSliderMouseTest, AnySingleButtonDrags) {
    begin(20, 80);
    press(at(20), Qt::RightButton);
    move(at(30));
    release(at(30), Qt::RightButton);
    EXPECT_EQ(values(), Span(30, 80));
}

TEST_F(SpanSliderMouseTest, MoveWithoutAPressedHandleIsIgnored) {
    start(20, 80);
    QMouseEvent event(QEvent::MouseMove, at(30), Qt::NoButton, Qt::LeftButton, {});
    QCoreApplication::sendEvent(&slider, &event);
    EXPECT_FALSE(event.isAccepted());
    EXPECT_EQ(values(), Span(20, 80));
}

TEST_F(SpanSliderMouseTest, DragWithTrackingMovesPositionAndValueTogether) {
    begin(20, 80);
    press(at(20));
    move(at(25));
    EXPECT_EQ(values(), Span(25, 80));
    move(at(30));
    release(at(30));
    EXPECT_EQ(values(), Span(30, 80));
    EXPECT_THAT(events, ElementsAre("pressed 1", "lower at 25", "lower 25", "span 25 80",
                                    "lower at 30", "lower 30", "span 30 80", "released"));
    EXPECT_FALSE(slider.isSliderDown());
    EXPECT_EQ(slider.d().lower_pressed, QStyle::SC_None);
    EXPECT_EQ(slider.d().upper_pressed, QStyle::SC_None);
}

TEST_F(SpanSliderMouseTest, DragKeepsTheGripOnTheHandle) {
    begin(20, 80);
    press({23, 10});
    move({33, 10});
    EXPECT_EQ(slider.lowerPosition(), 30);
    release({33, 10});
}

TEST_F(SpanSliderMouseTest, DragWithoutTrackingCommitsOnRelease) {
    slider.setTracking(false);
    begin(20, 80);
    press(at(80));
    move(at(70));
    EXPECT_EQ(values(), Span(20, 80));
    EXPECT_EQ(positions(), Span(20, 70));
    release(at(70));
    EXPECT_EQ(values(), Span(20, 70));
    // The slider commits before the listeners that were connected later hear of the release.
    EXPECT_THAT(events,
                ElementsAre("pressed 2", "upper at 70", "upper 70", "span 20 70", "released"));
}

TEST_F(SpanSliderMouseTest, DragStopsAtTheEndsOfTheRange) {
    begin(20, 80);
    press(at(20));
    move({-50, 10});
    EXPECT_EQ(values(), Span(0, 80));
    release({-50, 10});
    press(at(80));
    move({300, 10});
    release({300, 10});
    EXPECT_EQ(values(), Span(0, 100));
}

TEST_F(SpanSliderMouseTest, MoveToTheSamePositionEmitsNothing) {
    begin(20, 80);
    press(at(20));
    move(at(20) + QPoint(0, 3));
    EXPECT_THAT(events, ElementsAre("pressed 1"));
    release(at(20));
}

TEST_F(SpanSliderMouseTest, StrayingTooFarRestoresThePressValue) {
    style.drag_distance = 15;
    begin(20, 80);
    press(at(20));
    move(at(40));
    EXPECT_EQ(values(), Span(40, 80));
    move({45, 34});  // within the widget grown by 15 pixels
    EXPECT_EQ(values(), Span(40, 80));
    move({45, 35});
    EXPECT_EQ(values(), Span(20, 80));
    move(at(50));
    EXPECT_EQ(values(), Span(50, 80));
    release(at(50));
}

TEST_F(SpanSliderMouseTest, WithoutADragDistanceTheMouseMayStray) {
    style.drag_distance = -1;
    begin(20, 80);
    press(at(20));
    move({45, 900});
    EXPECT_EQ(values(), Span(40, 80));
    release({45, 900});
}

TEST_F(SpanSliderMouseTest, WithBothHandlesOnTheSameValueADragToSmallerValuesMovesTheLowerHandle) {
    for (const auto mode :
         {QxtSpanSlider::FreeMovement, QxtSpanSlider::NoCrossing, QxtSpanSlider::NoOverlapping}) {
        slider.setHandleMovementMode(mode);
        begin(50, 50);
        press(at(50));
        if (mode != QxtSpanSlider::NoOverlapping) {  // which parts the handles at any move
            move(at(50) + QPoint(0, 2));
            EXPECT_TRUE(slider.d().first_movement) << "no real move yet";
        }
        move(at(40));
        EXPECT_EQ(values(), Span(40, 50));
        EXPECT_FALSE(slider.d().first_movement);
        EXPECT_EQ(slider.d().last_pressed, QxtSpanSlider::SpanHandleLower);
        EXPECT_EQ(slider.d().lower_pressed, QStyle::SC_SliderHandle);
        move(at(30));
        release(at(30));
        EXPECT_EQ(values(), Span(30, 50));
    }
}

TEST_F(SpanSliderMouseTest, WithBothHandlesOnTheSameValueADragToLargerValuesMovesTheUpperHandle) {
    for (const auto mode :
         {QxtSpanSlider::FreeMovement, QxtSpanSlider::NoCrossing, QxtSpanSlider::NoOverlapping}) {
        slider.setHandleMovementMode(mode);
        begin(50, 50);
        press(at(50));
        move(at(60));
        EXPECT_EQ(values(), Span(50, 60));
        EXPECT_EQ(slider.d().last_pressed, QxtSpanSlider::SpanHandleUpper);
        move(at(70));
        EXPECT_FALSE(slider.d().first_movement);
        release(at(70));
        EXPECT_EQ(values(), Span(50, 70));
    }
}

TEST_F(SpanSliderMouseTest, WithoutCrossingTheDraggedLowerHandleStopsAtTheUpperValue) {
    slider.setHandleMovementMode(QxtSpanSlider::NoCrossing);
    begin(20, 60);
    press(at(20));
    move(at(90));
    EXPECT_EQ(values(), Span(60, 60));
    move(at(30));
    EXPECT_EQ(values(), Span(30, 60));
    release(at(30));
}

TEST_F(SpanSliderMouseTest, WithoutCrossingTheDraggedUpperHandleStopsAtTheLowerValue) {
    slider.setHandleMovementMode(QxtSpanSlider::NoCrossing);
    begin(20, 60);
    press(at(60));
    move(at(5));
    release(at(5));
    EXPECT_EQ(values(), Span(20, 20));
}

TEST_F(SpanSliderMouseTest,
       WithoutOverlappingTheDraggedLowerHandleStopsOneStepBeforeTheUpperValue) {
    slider.setHandleMovementMode(QxtSpanSlider::NoOverlapping);
    begin(20, 60);
    press(at(20));
    move(at(90));
    release(at(90));
    EXPECT_EQ(values(), Span(59, 60));
}

TEST_F(SpanSliderMouseTest,
       WithoutOverlappingTheDraggedUpperHandleStopsOneStepBeforeTheLowerValue) {
    slider.setHandleMovementMode(QxtSpanSlider::NoOverlapping);
    begin(20, 60);
    press(at(60));
    move(at(5));
    release(at(5));
    EXPECT_EQ(values(), Span(20, 21));
}

TEST_F(SpanSliderMouseTest, CrossingInFreeMovementSwapsTheRolesOfTheHandles) {
    begin(20, 50);
    press(at(20));
    move(at(45));
    move(at(60));
    QxtSpanSliderPrivate& d = slider.d();
    EXPECT_EQ(d.last_pressed, QxtSpanSlider::SpanHandleUpper);
    EXPECT_EQ(d.main_control, QxtSpanSlider::SpanHandleUpper);
    EXPECT_EQ(d.upper_pressed, QStyle::SC_SliderHandle);
    EXPECT_NE(d.lower_pressed, QStyle::SC_SliderHandle);
    // Positions are not exchanged: the lower end stays where the dragged handle was last.
    EXPECT_EQ(values(), Span(45, 60));
    EXPECT_EQ(positions(), Span(45, 60));
    EXPECT_THAT(events,
                ElementsAre("pressed 1", "lower at 45", "lower 45", "span 45 50", "upper at 60",
                            "lower 45", "span 45 45", "upper 60", "span 45 60"));
    move(at(30));  // and back again
    EXPECT_EQ(d.last_pressed, QxtSpanSlider::SpanHandleLower);
    EXPECT_EQ(values(), Span(30, 60));
    release(at(30));
}

TEST_F(SpanSliderMouseTest, CrossingInFreeMovementWithoutTrackingReportsSortedValuesMeanwhile) {
    slider.setTracking(false);
    begin(20, 50);
    press(at(20));
    move(at(60));
    EXPECT_EQ(slider.d().lower_value, 50);
    EXPECT_EQ(slider.d().upper_value, 20);
    EXPECT_EQ(values(), Span(20, 50));
    EXPECT_EQ(positions(), Span(20, 60));
    release(at(60));
    EXPECT_EQ(values(), Span(20, 60));
    EXPECT_EQ(slider.d().lower_value, 20);
}

TEST_F(SpanSliderMouseTest, VerticalSliderGrowsUpwards) {
    makeVertical();
    begin(20, 80);
    press({10, 85});  // the lower handle: top edge at 80
    EXPECT_EQ(slider.d().press_offset, 5);
    move({10, 75});
    release({10, 75});
    EXPECT_EQ(values(), Span(30, 80));
    press({10, 25});
    move({10, 5});
    release({10, 5});
    EXPECT_EQ(values(), Span(30, 100));
}

TEST_F(SpanSliderMouseTest, InvertedSliderGrowsToTheLeft) {
    slider.setInvertedAppearance(true);
    begin(20, 80);
    press({85, 10});  // the lower handle: left edge at 80
    move({75, 10});
    release({75, 10});
    EXPECT_EQ(values(), Span(30, 80));
}

TEST_F(SpanSliderMouseTest, PixelsMapToValuesAlongTheGroove) {
    QxtSpanSliderPrivate& d = slider.d();
    EXPECT_EQ(d.pixelPosToRangeValue(-7), 0);
    EXPECT_EQ(d.pixelPosToRangeValue(0), 0);
    EXPECT_EQ(d.pixelPosToRangeValue(37), 37);
    EXPECT_EQ(d.pixelPosToRangeValue(100), 100);
    EXPECT_EQ(d.pixelPosToRangeValue(180), 100);
    slider.setRange(100, 300);
    EXPECT_EQ(d.pixelPosToRangeValue(50), 200);
    makeVertical();
    EXPECT_EQ(d.pixelPosToRangeValue(0), 300);
    EXPECT_EQ(d.pixelPosToRangeValue(75), 150);
}

TEST_F(SpanSliderMouseTest, ReleaseRepaints) {
    begin(20, 80);
    press(at(20));
    settle();
    const int paints = slider.paints;
    release(at(20));
    settle();
    EXPECT_EQ(slider.paints, paints + 1);
}

}  // namespace
}  // namespace kova::test
