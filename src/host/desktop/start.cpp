#include "host/desktop/start.h"

#include <QApplication>
#include <QCryptographicHash>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QFileDialog>
#include <QFileInfo>
#include <QIcon>
#include <QMessageBox>
#include <QSettings>
#include <QTemporaryDir>
#include <cstdlib>

#include "host/desktop/desk.h"

namespace host::desktop {

namespace {

constexpr char kApplicationInterface[] = "org.freedesktop.Application";
constexpr int kAnswerMilliseconds = 3000;

// One for each database: two desks may show the same solution over different data.
QString busName(const SolutionOptions& options) {
    const QString folder = QFileInfo(QString::fromStdString(options.folder)).canonicalFilePath();
    const QString database = options.database.empty()
                                 ? folder + "/solution.db"
                                 : QFileInfo(QString::fromStdString(options.database)).absoluteFilePath();
    const QByteArray hash =
        QCryptographicHash::hash((folder + '\n' + database).toUtf8(), QCryptographicHash::Sha256).toHex().left(16);
    return "org.quil.Desk.s" + QString::fromLatin1(hash);
}

QString pathOf(const QString& name) {
    return '/' + QString(name).replace('.', '/');
}

// The desk as an application of the desktop.
class Application : public QDBusVirtualObject {
  public:
    explicit Application(Desk& desk) : desk_(desk) {}

    QString introspect(const QString&) const override {
        return "<interface name=\"org.freedesktop.Application\">"
               "<method name=\"Activate\"><arg type=\"a{sv}\" direction=\"in\"/></method>"
               "<method name=\"Open\"><arg type=\"as\" direction=\"in\"/><arg type=\"a{sv}\" "
               "direction=\"in\"/></method>"
               "<method name=\"ActivateAction\"><arg type=\"s\" direction=\"in\"/><arg type=\"av\" direction=\"in\"/>"
               "<arg type=\"a{sv}\" direction=\"in\"/></method></interface>";
    }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        if (message.interface() != kApplicationInterface) {
            return false;
        }
        if (message.member() == "ActivateAction") {
            connection.send(message.createErrorReply(QDBusError::NotSupported, "this application has no actions"));
            return true;
        }
        if (message.member() != "Activate" && message.member() != "Open") {
            return false;
        }
        desk_.bringForward();
        connection.send(message.createReply());
        return true;
    }

  private:
    Desk& desk_;
};

// Asks the desk that has this name to come forward. False when there is none.
bool bringOtherForward(const QString& name) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        return false;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(name, pathOf(name), kApplicationInterface, "Activate");
    call << QVariantMap();
    call.setAutoStartService(false);
    return bus.call(call, QDBus::Block, kAnswerMilliseconds).type() == QDBusMessage::ReplyMessage;
}

bool hasDisplay() {
    for (const char* name : {"QT_QPA_PLATFORM", "WAYLAND_DISPLAY", "DISPLAY"}) {
        if (const char* const value = std::getenv(name); value != nullptr && *value != '\0') {
            return true;
        }
    }
    return false;
}

}  // namespace

int run(Context& context, DeskOptions& options) {
    if (!hasDisplay()) {
        throw HostError(
            "there is no display to show windows on (neither WAYLAND_DISPLAY nor DISPLAY is set); \"quil run\" runs "
            "the solution in the terminal");
    }
    int argc = 1;
    std::string program = "quil-desk";
    char* argv[] = {program.data(), nullptr};
    QCoreApplication::setOrganizationName("quil");
    QCoreApplication::setApplicationName("desk");
    QGuiApplication::setDesktopFileName("org.quil.Desk");
    const bool scenes = !options.scenes.empty();
    QTemporaryDir scenesSettings;  // pictures show nobody's own settings, and change none
    if (scenes) {
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, scenesSettings.path());
        options.solution.database = scenesSettings.filePath("solution.db").toStdString();
    }
    QApplication application(argc, argv);
    QGuiApplication::setApplicationDisplayName("QUIL");
    QApplication::setWindowIcon(QIcon::fromTheme("org.quil.Desk"));
    if (options.solution.folder.empty()) {
        const QString folder = QFileDialog::getExistingDirectory(nullptr, "Open a Solution",
                                                                 QSettings().value("folders/solution").toString());
        if (folder.isEmpty()) {
            return 0;
        }
        QSettings().setValue("folders/solution", QFileInfo(folder).absolutePath());
        options.solution.folder = folder.toStdString();
    }
    const QString name = busName(options.solution);
    if (!scenes && bringOtherForward(name)) {
        return 0;
    }
    if (appearance() != Appearance::system) {
        setAppearance(appearance());
    }
    std::unique_ptr<Desk> desk;
    try {
        desk = std::make_unique<Desk>(context, options.solution);
    } catch (const HostError& error) {
        // Whoever started it from a menu sees no standard error.
        if (QGuiApplication::platformName() != "offscreen" && !scenes) {
            QMessageBox::critical(nullptr, "QUIL", QString("The solution cannot be opened:\n") + error.what());
        }
        throw;
    }
    if (scenes) {
        return runScenes(*desk, options.scenes);
    }
    Application onBus(*desk);
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (bus.isConnected() && bus.registerVirtualObject(pathOf(name), &onBus)) {
        bus.registerService(name);
    }
    const int status = desk->run();
    bus.unregisterService(name);
    bus.unregisterObject(pathOf(name));
    return status;
}

}  // namespace host::desktop
