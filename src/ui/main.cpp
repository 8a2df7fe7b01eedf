#include "app/AppSettings.h"
#include "library/FlowLibrary.h"
#include "ui/MainWindow.h"

#include <QApplication>
#include <QPalette>
#include <QStyleFactory>

namespace {

void applyAppearance(varnel::Appearance appearance) {
    if (appearance == varnel::Appearance::system)
        return;
    QApplication::setStyle(QStyleFactory::create("Fusion"));
    if (appearance == varnel::Appearance::light)
        return;
    QPalette dark;
    dark.setColor(QPalette::Window, QColor(37, 37, 40));
    dark.setColor(QPalette::WindowText, QColor(230, 230, 232));
    dark.setColor(QPalette::Base, QColor(28, 28, 30));
    dark.setColor(QPalette::AlternateBase, QColor(44, 44, 48));
    dark.setColor(QPalette::Text, QColor(230, 230, 232));
    dark.setColor(QPalette::Button, QColor(48, 48, 52));
    dark.setColor(QPalette::ButtonText, QColor(230, 230, 232));
    dark.setColor(QPalette::Highlight, QColor(10, 132, 255));
    dark.setColor(QPalette::HighlightedText, Qt::white);
    QApplication::setPalette(dark);
}

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setOrganizationName("Varnel");
    QApplication::setApplicationName("Varnel");
    QApplication::setApplicationVersion(VARNEL_VERSION);

    varnel::AppSettings settings;
    applyAppearance(settings.appearance());
    varnel::FlowLibrary library{varnel::FlowStore(settings.rootFolderPath())};
    library.open();

    varnel::MainWindow window(library);
    window.resize(1100, 720);
    window.show();
    return app.exec();
}
