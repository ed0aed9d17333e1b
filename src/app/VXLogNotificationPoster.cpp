#include "app/VXLogNotificationPoster.h"

#include "transport/PZLogger.h"

void VXLogNotificationPoster::postNotification(const std::string&, const std::string& description,
                                               const std::string&) {
    PZLog(description);
}

void VXLogNotificationPoster::showCriticalAlert(const std::string& message,
                                                const std::string& informativeText) {
    PZLog(message);
    if (!informativeText.empty()) {
        PZLog(informativeText);
    }
}
