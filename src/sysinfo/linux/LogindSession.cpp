#include "sysinfo/linux/LogindSession.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

#include <atomic>
#include <chrono>

namespace {

const char* const service = "org.freedesktop.login1";

// Whether logind runs, asked at most every few seconds (a machine without it is not asked each time).
bool logindPresent() {
    static std::atomic<long long> checkedAt{-1};
    static std::atomic<bool> present{false};
    const long long now =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count();
    const long long last = checkedAt.load();
    if (last >= 0 && now - last < 10) {
        return present.load();
    }
    QDBusConnection bus = QDBusConnection::systemBus();
    const bool answer = bus.isConnected() && bus.interface() != nullptr &&
                        bus.interface()->isServiceRegistered(QString::fromLatin1(service)).value();
    present.store(answer);
    checkedAt.store(now);
    return answer;
}

} // namespace

bool LogindSession::setBacklightBrightness(const std::string& name, std::uint32_t value) {
    if (!logindPresent()) {
        return false;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QString::fromLatin1(service), QStringLiteral("/org/freedesktop/login1/session/auto"),
        QStringLiteral("org.freedesktop.login1.Session"), QStringLiteral("SetBrightness"));
    call << QStringLiteral("backlight") << QString::fromStdString(name) << static_cast<uint>(value);
    const QDBusMessage reply = QDBusConnection::systemBus().call(call, QDBus::Block, 2000);
    return reply.type() == QDBusMessage::ReplyMessage;
}
