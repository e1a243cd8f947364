#include <QAbstractButton>
#include <QAbstractSlider>
#include <QComboBox>
#include <QFile>
#include <QGroupBox>
#include <QLabel>
#include <QProcess>
#include <QTranslator>

#include <fstream>
#include <set>

#include "sdk/modes.h"
#include "tests/app/window_fixture.h"
#include "tests/support/test_data.h"

namespace kova::test {
namespace {

using testing::HasSubstr;

// Takes a translation into use for its life.
class Installed {
public:
    explicit Installed(QTranslator& translator) : translator_(translator) {
        QCoreApplication::installTranslator(&translator_);
    }
    ~Installed() { QCoreApplication::removeTranslator(&translator_); }

private:
    QTranslator& translator_;
};

// Sets the texts of the window's context in brackets, and no others.
class Brackets : public QTranslator {
public:
    bool isEmpty() const override { return false; }
    QString translate(const char* context, const char* text, const char*, int) const override {
        if (std::string(context) != "MainWindow")
            return {};
        used.insert(text);
        return QStringLiteral("[") + QString::fromUtf8(text) + QStringLiteral("]");
    }
    mutable std::set<std::string> used;
};

std::string bracketed(const QString& text) {
    if (text.isEmpty() || (text.startsWith('[') && text.endsWith(']')))
        return "";
    return text.toStdString();
}

class TranslationTest : public WindowTest {
protected:
    // Texts on the screen that did not pass through the translation.
    std::vector<std::string> untranslated() {
        std::vector<std::string> left;
        const auto check = [&](const QString& text) {
            if (const std::string bad = bracketed(text); !bad.empty())
                left.push_back(bad);
        };
        check(window->windowTitle());
        for (const auto* label : window->findChildren<QLabel*>()) check(label->text());
        for (const auto* button : window->findChildren<QAbstractButton*>()) check(button->text());
        for (const auto* group : window->findChildren<QGroupBox*>()) check(group->title());
        for (const auto* list : window->findChildren<QComboBox*>())
            for (int i = 0; i < list->count(); ++i) check(list->itemText(i));
        return left;
    }
};

TEST_F(TranslationTest, TinyTranslationChangesTheTexts) {
    makeWindow(cameras({bino::CAMERA_MODEL_QUELVAR_R0}));
    EXPECT_EQ(child<QAbstractButton>("btnStart")->text(), "Open");
    QTranslator german;
    ASSERT_TRUE(german.load(QStringLiteral(KOVA_TINY_TRANSLATION)));
    const Installed installed(german);
    makeWindow(cameras({bino::CAMERA_MODEL_QUELVAR_R0}));
    EXPECT_EQ(child<QAbstractButton>("btnStart")->text().toStdString(), "Öffnen");
    EXPECT_EQ(child<QAbstractButton>("btnStop")->text().toStdString(), "Close");
    child<QAbstractSlider>("horizontalSliderConfidence")->setValue(75);
    EXPECT_EQ(text("labelConfidence"), "Vertrauen 75 %");
    EXPECT_EQ(entries("comboBoxImageType").at(3), "Bodenkarte");
}

TEST_F(TranslationTest, EveryTextOfTheIdleWindowPassesThroughTheContext) {
    Brackets brackets;
    const Installed installed(brackets);
    makeWindow(cameras({bino::CAMERA_MODEL_QUELVAR_R0}));
    EXPECT_THAT(untranslated(), testing::ElementsAre());
}

TEST_F(TranslationTest, EveryTextOfACapturePassesThroughTheContext) {
    Brackets brackets;
    const Installed installed(brackets);
    makeWindow(cameras({bino::CAMERA_MODEL_QUELVAR_R0}));
    camera.scriptGrabs({}, RESULT_OK);
    click("btnStart");
    ASSERT_TRUE(waitFor([&] { return text("labelFps") != ""; }));
    EXPECT_THAT(text("labelFps"), HasSubstr("[Calculation time: ]"));
    EXPECT_THAT(text("labelFps"), HasSubstr("[ ms]"));
    EXPECT_EQ(text("labelSN"), "[SN ]4711");
    EXPECT_EQ(text("labelHW"), "[HW ]2.5");
    EXPECT_EQ(text("labelVersion"), "[v ][1.6.0]");
    EXPECT_EQ(text("labelConfidence"), "[Confidence 100 %]");
    EXPECT_EQ(text("labelMaxDistance"), "[Distance Range  (]300 8000[)]");
    EXPECT_EQ(text("labelExposureMS"), "5.00[ ms]");
    child<QAbstractSlider>("horizontalSliderConfidence")->setValue(75);
    EXPECT_EQ(text("labelConfidence"), "[Confidence ]75[ %]");
}

TEST_F(TranslationTest, MessageBoxesAndTheFileDialogPassThroughTheContext) {
    Brackets brackets;
    const Installed installed(brackets);
    makeWindow(cameras({bino::CAMERA_MODEL_QUELVAR_R0}));
    camera.script().open_result = RESULT_INVALID_CAMERA;
    click("btnStart");
    click("btnTutorials");
    QStringList filters;
    std::string caption;
    modal.on_file_dialog = [&](QFileDialog& dialog) {
        filters = dialog.nameFilters();
        caption = dialog.windowTitle().toStdString();
        dialog.reject();
    };
    activate("comboBoxCamera", 1);
    ASSERT_EQ(modal.boxes.size(), 2u);
    EXPECT_EQ(modal.boxes[0].title, "[Error]");
    EXPECT_EQ(modal.boxes[0].text, "[Open depth camera failed: \r\n]Invalid camera");
    EXPECT_EQ(modal.boxes[1].title, "[Tutorials]");
    EXPECT_EQ(QString::fromStdString(modal.boxes[1].text).count('['), 13);
    EXPECT_EQ(filters, QStringList{"[Kova file (*.kova)]"});
    EXPECT_EQ(caption, "Select .kova File");  // the one text that is not translated
}

// The texts of the translation's source file.
std::set<std::string> sourceTexts() {
    QFile file(QStringLiteral(KOVA_TRANSLATION_SOURCE));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    const QString all = QString::fromUtf8(file.readAll());
    std::set<std::string> texts;
    for (int at = all.indexOf("<source>"); at >= 0; at = all.indexOf("<source>", at + 1)) {
        QString text = all.mid(at + 8, all.indexOf("</source>", at) - at - 8);
        text.replace("&lt;", "<")
            .replace("&gt;", ">")
            .replace("&quot;", "\"")
            .replace("&amp;", "&");
        text.replace("<byte value=\"xd\"/>", "\r");
        texts.insert(text.toStdString());
    }
    return texts;
}

TEST_F(TranslationTest, TextsInUseAreInTheSourceFile) {
    Brackets brackets;
    {
        const Installed installed(brackets);
        makeWindow(cameras({bino::CAMERA_MODEL_QUELVAR_R0, bino::CAMERA_MODEL_QUELVAR_R1,
                            bino::CAMERA_MODEL_QUELVAR_T1, bino::CAMERA_MODEL_QUELVAR_P0,
                            bino::CAMERA_MODEL_QUELVAR_P1}));
        activate("comboBoxCamera", 1);
        click("btnTutorials");
    }
    const std::set<std::string> texts = sourceTexts();
    for (const std::string& text : brackets.used) EXPECT_EQ(texts.count(text), 1u) << text;
    for (const auto& row : bino::resolution_fps_modes()) EXPECT_EQ(texts.count(row.name), 1u);
}

TEST_F(TranslationTest, SourceFileIsInStepWithTheSources) {
    const TemporaryFolder folder;
    const QString copy = QString::fromStdString((folder / "gantrel.ts").string());
    const QString kept = QStringLiteral(KOVA_TRANSLATION_SOURCE);
    ASSERT_TRUE(QFile::copy(kept, copy));
    QStringList arguments = QStringLiteral(KOVA_LUPDATE_ARGUMENTS).split(',');
    arguments << "-ts" << copy;
    QProcess lupdate;
    lupdate.start(QStringLiteral(KOVA_LUPDATE), arguments);
    ASSERT_TRUE(lupdate.waitForFinished());
    ASSERT_EQ(lupdate.exitCode(), 0) << lupdate.readAllStandardError().constData();
    EXPECT_EQ(lupdate.readAllStandardError().toStdString(), "");
    QFile before(kept);
    QFile after(copy);
    ASSERT_TRUE(before.open(QIODevice::ReadOnly));
    ASSERT_TRUE(after.open(QIODevice::ReadOnly));
    EXPECT_TRUE(before.readAll() == after.readAll())
        << "build the target update_translations and commit what it changes";
}

}  // namespace
}  // namespace kova::test
