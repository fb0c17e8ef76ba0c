#include "application/application.h"

#include <QApplication>
#include <xcb/xcb.h>

#include <QLatin1String>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

bool IsSet(const char* variable) {
    const char* value = std::getenv(variable);
    return value != nullptr && *value != '\0';
}

// Qt ends the process when it finds no screen, so it is asked for beforehand.
bool ScreenAnswers() {
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    const bool answers = xcb_connection_has_error(connection) == 0;
    xcb_disconnect(connection);
    return answers;
}

// One unit is one pixel everywhere in the program, and DPI is its own business. Windows have to be
// placed by the program, which only X11 allows, also as XWayland.
void ChoosePlatform() {
    setenv("QT_ENABLE_HIGHDPI_SCALING", "0", 1);
    unsetenv("QT_SCALE_FACTOR");
    unsetenv("QT_SCREEN_SCALE_FACTORS");
    if (!IsSet("QT_QPA_PLATFORM")) {
        setenv("QT_QPA_PLATFORM", "xcb", 1);
    }
}

QApplication* Make() {
    ChoosePlatform();
    if (QLatin1String(std::getenv("QT_QPA_PLATFORM")) == QLatin1String("xcb") && !ScreenAnswers()) {
        std::fputs("Kelvarin needs an X11 screen (DISPLAY), and there is none.\n", stderr);
        return nullptr;
    }
    static int argc = 1;
    static char name[] = "kelvarin";
    static char* argv[] = {name, nullptr};
    QCoreApplication::setAttribute(Qt::AA_DisableSessionManager);
    // Outlives the static destructors on purpose.
    QApplication* const application = std::make_unique<QApplication>(argc, argv).release();
    std::setlocale(LC_NUMERIC, "C"); // Qt took the user's; decimal points are ours
    QGuiApplication::setDesktopFileName(QStringLiteral("kelvarin"));
    QGuiApplication::setQuitOnLastWindowClosed(false);
    return application;
}

} // namespace

QApplication* application::Instance() {
    static QApplication* const instance = Make();
    return instance;
}
