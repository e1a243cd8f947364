#include "tests/app/window_fixture.h"

#include <QAbstractButton>
#include <QAbstractSlider>
#include <QApplication>
#include <QComboBox>
#include <QEventLoop>
#include <QGroupBox>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>

#include <algorithm>
#include <mutex>

#include "qwidget/qxtspanslider.h"

std::vector<const void*> MainWindowAccess::records(const MainWindow& w) {
    return {w.image_record.load().data, w.depth_record.load().data,
            w.point_cloud_color_record.load().data, w.point_cloud_record.load().data};
}

namespace kova::test {

namespace {

std::mutex log_mutex;
std::vector<std::string> log_lines;

void keepLog(QtMsgType type, const QMessageLogContext& context, const QString& text) {
    if (type != QtDebugMsg)
        return;
    const std::lock_guard lock(log_mutex);
    log_lines.push_back(std::string(context.category ? context.category : "") + ": " +
                        text.toStdString());
}

template <typename T>
std::string textOf(const T& value) {
    if constexpr (std::is_floating_point_v<T>)
        return QString::number(static_cast<double>(value), 'g', 9).toStdString();
    else
        return std::to_string(static_cast<long long>(value));
}

void addWidget(State& state, const QWidget& widget) {
    const std::string name = widget.objectName().toStdString();
    state[name + ".hidden"] = textOf(widget.isHidden());
    // Of its own: a disabled parent counts for the parent.
    state[name + ".enabled"] = textOf(!widget.testAttribute(Qt::WA_ForceDisabled));
    if (const auto* label = qobject_cast<const QLabel*>(&widget))
        state[name + ".text"] = label->text().toStdString();
    if (const auto* button = qobject_cast<const QAbstractButton*>(&widget)) {
        state[name + ".text"] = button->text().toStdString();
        state[name + ".checked"] = textOf(button->isChecked());
    }
    if (const auto* box = qobject_cast<const QGroupBox*>(&widget))
        state[name + ".title"] = box->title().toStdString();
    if (const auto* spin = qobject_cast<const QSpinBox*>(&widget))
        state[name + ".value"] = textOf(spin->value());
    if (const auto* list = qobject_cast<const QComboBox*>(&widget)) {
        std::string items;
        for (int i = 0; i < list->count(); ++i)
            items += (i ? "|" : "") + list->itemText(i).toStdString();
        state[name + ".items"] = items;
        state[name + ".current"] = textOf(list->currentIndex());
    }
    if (const auto* slider = qobject_cast<const QAbstractSlider*>(&widget)) {
        state[name + ".range"] = textOf(slider->minimum()) + ".." + textOf(slider->maximum());
        state[name + ".value"] = textOf(slider->value());
    }
    if (const auto* span = qobject_cast<const qwidget::QxtSpanSlider*>(&widget)) {
        state[name + ".span"] = textOf(span->lowerValue()) + ".." + textOf(span->upperValue());
        state[name + ".positions"] =
            textOf(span->lowerPosition()) + ".." + textOf(span->upperPosition());
    }
}

}  // namespace

State stateOf(const MainWindow& window) {
    State state = MainWindowAccess::members(window);
    for (const QWidget* widget : window.findChildren<QWidget*>())
        if (!widget->objectName().isEmpty() && !widget->objectName().startsWith("qt_"))
            addWidget(state, *widget);
    return state;
}

State changes(const State& before, const State& after) {
    State changed;
    for (const auto& [name, value] : after) {
        const auto old = before.find(name);
        if (old == before.end() || old->second != value)
            changed[name] = value;
    }
    return changed;
}

LogWatch::LogWatch() {
    clear();
    qInstallMessageHandler(keepLog);
}

LogWatch::~LogWatch() {
    qInstallMessageHandler(nullptr);
}

std::vector<std::string> LogWatch::lines() const {
    const std::lock_guard lock(log_mutex);
    return log_lines;
}

int LogWatch::count(const std::string& line) const {
    const auto all = lines();
    return static_cast<int>(std::count(all.begin(), all.end(), line));
}

void LogWatch::clear() {
    const std::lock_guard lock(log_mutex);
    log_lines.clear();
}

ModalWatch::ModalWatch() {
    lookLater();
}

void ModalWatch::lookLater() {
    QTimer::singleShot(5, &context_, [this] { look(); });
}

void ModalWatch::look() {
    lookLater();  // first: what follows may come to a further box
    QWidget* active = QApplication::activeModalWidget();
    if (!active || active->property("seen").toBool())
        return;
    if (auto* box = qobject_cast<QMessageBox*>(active)) {
        box->setProperty("seen", true);
        boxes.push_back({box->windowTitle().toStdString(), box->text().toStdString(),
                         static_cast<int>(box->standardButtons()), box->parentWidget() != nullptr});
        if (on_box)
            on_box(*box);
        box->button(QMessageBox::Ok)->click();
    } else if (auto* dialog = qobject_cast<QFileDialog*>(active)) {
        dialog->setProperty("seen", true);
        if (on_file_dialog)
            on_file_dialog(*dialog);
        else
            dialog->reject();
    }
}

WindowTest::WindowTest() {
    QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
    camera.reset();
}

WindowTest::~WindowTest() {
    window.reset();
    camera.reset();
}

MainWindow& WindowTest::makeWindow(const CameraScript& script) {
    window.reset();
    camera.reset(script);
    log.clear();
    window = std::make_unique<MainWindow>();
    return *window;
}

std::string WindowTest::text(const char* label) {
    return child<QLabel>(label)->text().toStdString();
}

std::vector<std::string> WindowTest::entries(const char* combo_box) {
    const auto* list = child<QComboBox>(combo_box);
    std::vector<std::string> texts;
    for (int i = 0; i < list->count(); ++i) texts.push_back(list->itemText(i).toStdString());
    return texts;
}

void WindowTest::click(const char* button) {
    child<QAbstractButton>(button)->click();
}

void WindowTest::activate(const char* combo_box, int index) {
    auto* list = child<QComboBox>(combo_box);
    list->setCurrentIndex(index);
    emit list->activated(index);
}

void WindowTest::chooseFile(const QString& path) {
    modal.on_file_dialog = [path](QFileDialog& dialog) {
        dialog.selectFile(path);
        QMetaObject::invokeMethod(&dialog, "accept", Qt::QueuedConnection);
    };
    const auto* list = child<QComboBox>("comboBoxCamera");
    activate("comboBoxCamera", list->count() - 1);
    modal.on_file_dialog = nullptr;
}

bool waitFor(const std::function<bool()>& condition) {
    QEventLoop loop;
    QTimer poll;
    QTimer deadline;
    bool met = condition();
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        met = condition();
        if (met)
            loop.quit();
    });
    QObject::connect(&deadline, &QTimer::timeout, &loop, &QEventLoop::quit);
    poll.start(2);
    deadline.start(10000);
    if (!met)
        loop.exec();
    return met;
}

void handleEvents() {
    for (int i = 0; i < 3; ++i) QCoreApplication::processEvents();
}

void runFor(int milliseconds) {
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

CameraScript cameras(std::vector<bino::CAMERA_MODEL> models) {
    CameraScript script;
    script.models = std::move(models);
    script.stereo.fx = 500.5f;
    script.stereo.fy = 501.25f;
    script.stereo.cx = 320.125f;
    script.stereo.cy = 200.75f;
    return script;
}

}  // namespace kova::test

std::map<std::string, std::string> MainWindowAccess::members(const MainWindow& w) {
    using kova::test::textOf;
    const auto grab = w.grab_parameters.load();
    const auto& obstacle = w.obstacle_parameters;
    const auto& stixels = w.stixels_parameters;
    std::string models;
    for (const auto model : w.camera_models) models += textOf(static_cast<int>(model)) + " ";
    std::string modes;
    for (const auto mode : w.resolution_list) modes += textOf(static_cast<int>(mode)) + " ";
    return {
        {"camera index", textOf(w.camera_index)},
        {"camera models", models},
        {"resolution list", modes},
        {"work mode", textOf(static_cast<int>(w.work_mode))},
        {"resolution mode", textOf(static_cast<int>(w.resolution_mode))},
        {"grab parameters", textOf(grab.rectify) + " " + textOf(grab.depth_mode) + " " +
                                textOf(grab.left_right_check) + " " + textOf(grab.speckle_removal) +
                                " " + textOf(grab.reserved[0]) + " " + textOf(grab.reserved[1]) +
                                " " + textOf(grab.reserved[2]) + " " + textOf(grab.reserved[3])},
        {"image view type", textOf(static_cast<int>(w.image_view_type))},
        {"depth view type", textOf(static_cast<int>(w.depth_view_type))},
        {"stereo parameters",
         textOf(w.stereo_parameters.fx) + " " + textOf(w.stereo_parameters.fy) + " " +
             textOf(w.stereo_parameters.cx) + " " + textOf(w.stereo_parameters.cy)},
        {"image size", textOf(w.image_width) + " x " + textOf(w.image_height)},
        {"running", textOf(w.running.load())},
        {"finished", textOf(w.finished.load())},
        {"flip", textOf(w.flip.load())},
        {"keep ratio", textOf(w.keep_ratio)},
        {"distance range", textOf(w.min_distance) + " " + textOf(w.max_distance)},
        {"live camera", textOf(w.live_camera.load())},
        {"playing", textOf(w.playing.load())},
        {"file path", w.file_path.toStdString()},
        {"loop", textOf(w.loop.load())},
        {"maximum exposure", textOf(w.max_exposure)},
        {"auto exposure", textOf(w.auto_exposure)},
        {"use IMU", textOf(w.use_imu)},
        {"detection flag 2", textOf(w.detection_flag_2)},
        {"obstacle parameters",
         textOf(obstacle.ground_min_region) + " " + textOf(int{obstacle.ground_min_support}) + " " +
             textOf(obstacle.obstacle_min_height) + " " + textOf(obstacle.obstacle_foot_height) +
             " " + textOf(obstacle.clearance) + " " + textOf(obstacle.max_ground_slope) + " " +
             textOf(obstacle.min_drop)},
        {"stixels parameters", textOf(stixels.width) + " " + textOf(stixels.min_length) + " " +
                                   textOf(stixels.crop_top) + " " + textOf(stixels.crop_bottom) +
                                   " " + textOf(stixels.max_layers)},
        {"pressed point", textOf(w.pressed_point.x) + " " + textOf(w.pressed_point.y)},
        {"released point", textOf(w.released_point.x) + " " + textOf(w.released_point.y)},
        {"frame mutex held", textOf(w.mutex.heldByGui())},
    };
}
