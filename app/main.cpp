#include <iostream>

#include "app/application.h"
#include "app/mainwindow.h"

int main(int argc, char** argv) {
    kova::app::Application application(argc, argv);
    std::cout << "### Warning: Using GantrelCUDA on TX1/2 is more efficient than Gantrel ###"
              << std::endl;
    QCoreApplication::setOrganizationName(QStringLiteral("Tessival"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("tessival.example"));
    QCoreApplication::setApplicationVersion(QStringLiteral("1.6.0"));
    MainWindow window;
    window.show();
    return kova::app::Application::exec();
}
