#include "input/linux/LogindPowerActions.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QString>

#include <atomic>

LogindPowerActions::LogindPowerActions(std::string busAddress) : busAddress_(std::move(busAddress)) {}

std::optional<std::string> LogindPowerActions::call(const char* method) {
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!busAddress_.empty()) {
        static std::atomic<int> serial{0};
        const QString name = QStringLiteral("vxh-power-%1").arg(serial.fetch_add(1));
        bus = QDBusConnection::connectToBus(QString::fromStdString(busAddress_), name);
    }
    if (!bus.isConnected()) {
        return "no D-Bus system bus: " + bus.lastError().message().toStdString();
    }
    QDBusMessage message = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
        QStringLiteral("org.freedesktop.login1.Manager"), QString::fromLatin1(method));
    message << true; // interactive: polkit may ask for authorisation
    const QDBusMessage reply = bus.call(message, QDBus::Block, 25000);
    if (!busAddress_.empty()) {
        QDBusConnection::disconnectFromBus(bus.name());
    }
    if (reply.type() == QDBusMessage::ErrorMessage) {
        return "logind " + std::string(method) + ": " + reply.errorMessage().toStdString();
    }
    if (reply.type() != QDBusMessage::ReplyMessage) {
        return "logind " + std::string(method) + ": no answer";
    }
    return std::nullopt;
}

std::optional<std::string> LogindPowerActions::suspend() {
    return call("Suspend");
}

std::optional<std::string> LogindPowerActions::reboot() {
    return call("Reboot");
}

std::optional<std::string> LogindPowerActions::powerOff() {
    return call("PowerOff");
}
