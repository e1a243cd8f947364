#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QProcess>

#include <string>

namespace {

using testing::HasSubstr;

const std::string kWarning =
    "### Warning: Using GantrelCUDA on TX1/2 is more efficient than Gantrel ###\n";

struct ViewerRun {
    int exit_code = -1;
    std::string out;
    std::string err;
};

ViewerRun runViewer(const QStringList& settings = {}, const QStringList& arguments = {}) {
    QProcess viewer;
    viewer.setProcessEnvironment([&] {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const QString& setting : settings)
            environment.insert(setting.section('=', 0, 0), setting.section('=', 1));
        return environment;
    }());
    viewer.start(QStringLiteral(KOVA_SCRIPTED_VIEWER), arguments);
    EXPECT_TRUE(viewer.waitForFinished());
    EXPECT_EQ(viewer.exitStatus(), QProcess::NormalExit);
    return {viewer.exitCode(), viewer.readAllStandardOutput().toStdString(),
            viewer.readAllStandardError().toStdString()};
}

TEST(Main, StandardOutputHoldsTheStartUpLineAndNothingElse) {
    const ViewerRun run = runViewer();
    EXPECT_EQ(run.exit_code, 0) << run.err;
    EXPECT_EQ(run.out, kWarning);
    EXPECT_THAT(run.err, HasSubstr("organisation: Tessival\n"));
    EXPECT_THAT(run.err, HasSubstr("domain: tessival.example\n"));
    EXPECT_THAT(run.err, HasSubstr("version: 1.6.0\n"));
    EXPECT_THAT(run.err, HasSubstr("window: Tessival Gantrel\n"));
}

TEST(Main, CaptureAddsNothingToStandardOutput) {
    const ViewerRun run = runViewer({"KOVA_TEST_CAPTURE=1"});
    EXPECT_EQ(run.exit_code, 0) << run.err;
    EXPECT_EQ(run.out, kWarning);
    EXPECT_THAT(run.err, HasSubstr("Stereo camera open finished"));
}

TEST(Main, FailureOfGlewIsTheOnlyOtherLine) {
    const ViewerRun run = runViewer({"KOVA_TEST_CAPTURE=1", "KOVA_TEST_GLEW_RESULT=1"});
    EXPECT_EQ(run.exit_code, 0) << run.err;
    ASSERT_EQ(run.out.compare(0, kWarning.size(), kWarning), 0) << run.out;
    const std::string rest = run.out.substr(kWarning.size());
    EXPECT_EQ(rest.find("ERROR: glewInit failed with error: "), 0u) << rest;
    EXPECT_EQ(rest.find('\n'), rest.size() - 1) << rest;
}

TEST(Main, CommandLineIsQtsOwn) {
    const ViewerRun run = runViewer({}, {"-style", "Windows", "--unknown"});
    EXPECT_EQ(run.exit_code, 0) << run.err;
    EXPECT_EQ(run.out, kWarning);
}

}  // namespace
