#pragma once

#include <string>

// Where the application controller sends what it tells the user: desktop notifications and critical
// alerts. The desktop application shows them; the headless one writes them to the log.
class VXNotificationPoster {
public:
    virtual ~VXNotificationPoster() = default;

    // A notification: title, the text shown, and the notification's kind ("Server is waiting for
    // connections", "Client error", ...).
    virtual void postNotification(const std::string& title, const std::string& description,
                                  const std::string& name) = 0;
    // A modal critical alert with one "OK" button.
    virtual void showCriticalAlert(const std::string& message, const std::string& informativeText) = 0;
};
